"""Every file the package writes goes through write_atomic: written under a temporary name
beside its place, renamed into place when complete, removed on any failure, and refused
when it would replace one of the run's inputs (the tool's own test, through links too).
Every input file it reads whole goes through read_input, which words its refusals as the
tool does."""
import os
import tempfile


def read_input(path, error):
    """The bytes of the file at `path`; a folder or an unreadable file raises `error`."""
    path = os.fspath(path)
    if os.path.isdir(path):
        raise error("%s: is a folder, not a file" % path)
    try:
        with open(path, "rb") as f:
            return f.read()
    except OSError as e:
        raise error("%s: cannot open: %s" % (path, e.strerror)) from None


class OutputError(ValueError):
    """An output that cannot or must not be written, in one line naming it."""


def write_atomic(path, write, inputs=(), force=False):
    """Calls `write(temporary_path)`, then renames the temporary file to `path`."""
    path = str(path)
    if inputs:
        from .rules import overwrite_refusal
        refusal = overwrite_refusal(path, inputs, force)
        if refusal:
            raise OutputError(refusal)
    try:
        fd, tmp = tempfile.mkstemp(prefix=os.path.basename(path) + ".eqdrc-", dir=os.path.dirname(path) or ".")
    except OSError as e:
        raise OutputError("%s: cannot create: %s" % (path, e.strerror)) from None
    os.close(fd)
    try:
        mask = os.umask(0)  # mkstemp makes 0600; give the file the usual permissions
        os.umask(mask)
        os.chmod(tmp, 0o666 & ~mask)
        write(tmp)
        os.replace(tmp, path)
    except BaseException:
        os.unlink(tmp)
        raise
