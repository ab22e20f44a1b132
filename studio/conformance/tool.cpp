// The command-line processor linked into the conformance harness module, its main
// renamed so that the harness can run it in place of a separate program.
//
// Its shell command runs in a real shell with its output written to this process's
// standard output and error, which the harness has redirected: the runtime's own
// system() would hand the child node's streams instead.
#include <cstdio>
#include <cstdlib>
#include <emscripten/emscripten.h>

EM_JS(int, tool_shell, (const char *command), {
    const r = require('child_process').spawnSync('/bin/sh', ['-c', UTF8ToString(command)],
                                                  {argv0: 'sh', stdio: ['ignore', 'pipe', 'pipe']});
    if (r.stdout && r.stdout.length) FS.write(FS.getStream(1), r.stdout, 0, r.stdout.length);
    if (r.stderr && r.stderr.length) FS.write(FS.getStream(2), r.stderr, 0, r.stderr.length);
    return r.status === null ? 9 : (r.status & 255) << 8;
});

// The harness module's system(), in place of the runtime's.
extern "C" int system(const char *command)
{
    std::fflush(nullptr);
    return command ? tool_shell(command) : 1;
}

#define main quorvel_enh_main
#include "quorvel_enh.cpp"
#undef main

extern "C" int quorvel_main(int argc, char **argv) { return quorvel_enh_main(argc, argv); }
