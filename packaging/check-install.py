#!/usr/bin/env python3
"""The embedded recipes against the install step. Configures the project with exactly the
options the Buildroot package and the Yocto recipe pass, in the two configurations both
describe (the library alone, their default, and every part switched on), builds it,
installs it into a staging folder as those build systems do, and compares the files with
the lists kept beside this script. Also checks that every path a recipe names is one the
install step makes, and that the recipes and the Debian package carry the project's version.

    packaging/check-install.py [BUILD_DIR]            (default: build-packaging)
    packaging/check-install.py --update [BUILD_DIR]   writes the lists anew
"""
import os
import re
import shutil
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILDROOT_MK = "packaging/buildroot/package/tqaudio-effect-eqdrc/tqaudio-effect-eqdrc.mk"
YOCTO_DIR = "packaging/yocto"
LISTS = {"library": "packaging/install-library.txt", "everything": "packaging/install-everything.txt"}
# What both build systems add: the prefix, a plain lib folder (Yocto passes it; Buildroot's
# cross compiler has no multiarch folder), the Release type (Buildroot's default).
BUILD_SYSTEM_OPTIONS = ["-DCMAKE_INSTALL_PREFIX=/usr", "-DCMAKE_INSTALL_LIBDIR=lib", "-DCMAKE_BUILD_TYPE=Release"]
# The recipes' folder variables, as both build systems set them for that prefix.
FOLDERS = {"${bindir}": "/usr/bin", "${libdir}": "/usr/lib", "$(TARGET_DIR)": ""}


def read(path):
    with open(os.path.join(ROOT, path)) as f:
        return f.read().replace("\\\n", " ")


def fail(message):
    sys.exit("packaging: " + message)


def buildroot_options(text):
    """The -D options of the library alone (every conditional's else branch) and of
    everything (every then branch): each conditional in the .mk switches a part on."""
    default, everything, branches = [], [], []
    for line in text.splitlines():
        words = line.split()
        if words and words[0] in ("ifeq", "ifneq", "ifdef", "ifndef"):
            branches.append("then")
        elif words == ["else"]:
            branches[-1] = "else"
        elif words == ["endif"]:
            branches.pop()
        elif re.match(r"\s*TQAUDIO_EFFECT_EQDRC_CONF_OPTS\s*\+?=", line):
            options = re.findall(r"-D\S+", line)
            if all(b == "else" for b in branches):
                default += options
            if all(b == "then" for b in branches):
                everything += options
    return default, everything


def yocto_options(text):
    """EXTRA_OECMAKE with each PACKAGECONFIG's off (or, when in the default PACKAGECONFIG,
    on) options, and with every on option."""
    extra = re.search(r'^EXTRA_OECMAKE\s*=\s*"([^"]*)"', text, re.M)
    chosen = re.search(r'^PACKAGECONFIG\s*\?\?=\s*"([^"]*)"', text, re.M)
    if not extra or not chosen:
        fail("the Yocto recipe sets no EXTRA_OECMAKE or default PACKAGECONFIG")
    default, everything = extra.group(1).split(), extra.group(1).split()
    for name, value in re.findall(r'^PACKAGECONFIG\[(\w+)\]\s*=\s*"([^"]*)"', text, re.M):
        on, off = (value.split(",") + ["", ""])[:2]
        default += (on if name in chosen.group(1).split() else off).split()
        everything += on.split()
    return default, everything


def packaged_paths(mk, bb):
    """The installed paths the recipes name: Yocto's FILES and Buildroot's removals."""
    paths = []
    for value in re.findall(r'^FILES:\$\{PN\}-[\w-]+\s*=\s*"([^"]*)"', bb, re.M):
        paths += value.split()
    paths += re.findall(r"rm -f (\S+)", mk)
    for variable, folder in FOLDERS.items():
        paths = [p.replace(variable, folder) for p in paths]
    return paths


def installed_files(build, options):
    subprocess.run(["cmake", "-S", ROOT, "-B", build] + BUILD_SYSTEM_OPTIONS + options,
                   check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", build, "-j%d" % os.cpu_count()], check=True, stdout=subprocess.DEVNULL)
    stage = os.path.join(build, "stage")
    shutil.rmtree(stage, ignore_errors=True)
    subprocess.run(["cmake", "--install", build], check=True, stdout=subprocess.DEVNULL,
                   env=dict(os.environ, DESTDIR=stage))
    files = []
    for folder, _, names in os.walk(stage):
        files += ["/" + os.path.relpath(os.path.join(folder, n), stage) for n in names]
    return sorted(files)


def check_versions(mk, bb_name):
    project = re.search(r"project\(\S+ VERSION (\S+)", read("CMakeLists.txt")).group(1)
    versions = {
        BUILDROOT_MK: re.search(r"^TQAUDIO_EFFECT_EQDRC_VERSION\s*=\s*(\S+)", mk, re.M).group(1),
        bb_name: re.search(r"_([^_]+)\.bb$", bb_name).group(1),
        "debian/changelog": re.match(r"\S+ \(([^)-]+)", read("debian/changelog")).group(1),
    }
    for where, version in versions.items():
        if version != project:
            fail("%s has version %s, the project %s" % (where, version, project))


def main():
    args = sys.argv[1:]
    update = bool(args) and args[0] == "--update"
    build = os.path.abspath(args[1 if update else 0] if len(args) > update else os.path.join(ROOT, "build-packaging"))
    bb_names = [n for n in os.listdir(os.path.join(ROOT, YOCTO_DIR)) if n.endswith(".bb")]
    if len(bb_names) != 1:
        fail("expected one recipe in %s, found %s" % (YOCTO_DIR, bb_names))
    bb_name = os.path.join(YOCTO_DIR, bb_names[0])
    mk, bb = read(BUILDROOT_MK), read(bb_name)
    check_versions(mk, bb_name)

    configurations = dict(zip(LISTS, zip(buildroot_options(mk), yocto_options(bb))))
    found = {}
    for name, (buildroot, yocto) in configurations.items():
        if sorted(buildroot) != sorted(yocto):
            fail("%s: Buildroot passes %s, Yocto %s" % (name, " ".join(buildroot), " ".join(yocto)))
        print("packaging: %s: %s" % (name, " ".join(buildroot)))
        found[name] = installed_files(os.path.join(build, name), buildroot)
        listed = os.path.join(ROOT, LISTS[name])
        if update:
            with open(listed, "w") as f:
                f.write("".join(p + "\n" for p in found[name]))
            continue
        with open(listed) as f:
            expected = f.read().split()
        if found[name] != expected:
            missing = sorted(set(expected) - set(found[name]))
            extra = sorted(set(found[name]) - set(expected))
            fail("%s: the install step differs from %s: not installed %s; not listed %s (an intended change: "
                 "packaging/check-install.py --update, and the recipes' FILES)" % (name, LISTS[name], missing, extra))

    for path in packaged_paths(mk, bb):
        if not any(f == path or f.startswith(path + "/") for f in found["everything"]):
            fail("a recipe names %s, which the install step does not make" % path)
    print("packaging: both recipes install what %s list" % " and ".join(LISTS.values()))


if __name__ == "__main__":
    main()
