/*
 * The conformance harness as a WebAssembly module: the harness source unchanged, its
 * process handling replaced for a platform without fork. The node driver (run.mjs)
 * gives every case a fresh instance of the module, which is what the forked child is
 * natively: conf_run() runs the case and ends in exit(), the driver catches the exit
 * and asks conf_finish() for the case's report line.
 *
 * The command-line processor runs inside the same instance: its main is linked in
 * as quorvel_main, "fork" records where to come back to, "execv" calls the
 * processor (which ends in exit, caught by studio_call_tool) and jumps back to the
 * parent's side of the fork with its status.
 */
#define _GNU_SOURCE
#include <dirent.h>
#include <emscripten/emscripten.h>
#include <errno.h>
#include <fcntl.h>
#include <math.h>
#include <setjmp.h>
#include <signal.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

/* dup/dup2 that share the open file rather than reopen it by name: the harness's
 * capture files are unlinked as soon as they are open. */
EM_JS(int, conf_dup_to, (int oldfd, int newfd), {
    const old = FS.getStream(oldfd);
    if (!old) return -8; /* EBADF */
    if (newfd === oldfd) return newfd;
    if (newfd >= 0 && FS.getStream(newfd)) FS.close(FS.getStream(newfd));
    return FS.createStream(old, newfd >= 0 ? newfd : 0, newfd >= 0 ? newfd : undefined).fd;
});

static int conf_dup(int fd) { return conf_dup_to(fd, -1); }
static int conf_dup2(int fd, int to) { return conf_dup_to(fd, to); }

static jmp_buf g_fork_jmp;
static int g_fork_status;
static int g_saved_in = -1, g_saved_out = -1;
enum { kToolPid = 4242 };

static pid_t conf_fork(void)
{
    g_saved_in = conf_dup(0);
    g_saved_out = conf_dup(1);
    return 0;
}

/* Runs quorvel_main(argc, argv); returns a wait status. */
EM_JS(int, studio_call_tool, (int argc, char **argv), {
    const save = stackSave();
    let status;
    try {
        const code = Module['_quorvel_main'](argc, argv);
        Module['_fflush'](0);
        status = (code & 255) << 8;
    } catch (e) {
        if (e && e.name === 'ExitStatus') status = (e.status & 255) << 8;
        else status = 11; /* a trap: as a crash */
    }
    stackRestore(save);
    return status;
});

static int conf_execv(const char *path, char *const argv[])
{
    (void)path;
    int argc = 0;
    while (argv[argc])
        argc++;
    g_fork_status = studio_call_tool(argc, (char **)argv);
    conf_dup2(g_saved_in, 0);
    conf_dup2(g_saved_out, 1);
    close(g_saved_in);
    close(g_saved_out);
    longjmp(g_fork_jmp, 1);
}

static pid_t conf_waitpid(pid_t pid, int *st, int options)
{
    (void)options;
    *st = g_fork_status;
    return pid;
}

#define fork() (setjmp(g_fork_jmp) ? (pid_t)kToolPid : conf_fork())
#define execv conf_execv
#define dup conf_dup
#define dup2 conf_dup2
#define waitpid conf_waitpid
#define alarm(s) ((void)(s), 0u) /* the driver bounds the run as a whole */
#define main difftest_main
#include "difftest.c"
#undef main

static Shared g_shared;
static int g_errfd = -1, g_outfd = -1;
static char g_line[512];
static char *g_stderr_text;

/* The ids of the cases of FAMILIES (comma list) at a scale of CASES, one a line. */
EMSCRIPTEN_KEEPALIVE void conf_list(const char *families, int cases)
{
    g_tool = "/quorvel_enh";
    for (int f = 0; f < NFAMS; f++) {
        if (!family_selected(&FAMS[f], families))
            continue;
        for (int i = 0, n = family_count(&FAMS[f], cases); i < n; i++)
            printf("%s-%04d\n", FAMS[f].name, i);
    }
    fflush(stdout);
}

/* Runs one case; ends in exit() as the forked child does. */
EMSCRIPTEN_KEEPALIVE void conf_run(const char *id, int seed)
{
    g_tool = "/quorvel_enh";
    const char *dash = strrchr(id, '-');
    int fi = -1;
    for (int i = 0; dash && i < NFAMS; i++)
        if (strlen(FAMS[i].name) == (size_t)(dash - id) && !strncmp(FAMS[i].name, id, (size_t)(dash - id)))
            fi = i;
    if (fi < 0 || setup_rundir())
        exit(120);
    g_errfd = make_tmp_fd();
    g_outfd = make_tmp_fd();
    child_run(&FAMS[fi], atoi(dash + 1), (uint64_t)seed, &g_shared, g_errfd, g_outfd);
}

/* The case's report line after its exit with wait status ST, as the harness writes it. */
EMSCRIPTEN_KEEPALIVE const char *conf_finish(const char *id, int st)
{
    char stx[32];
    status_text(st, stx, sizeof stx);
    size_t n;
    free(g_stderr_text);
    uint64_t err = err_hash(g_errfd, g_outfd, &g_stderr_text, &n);
    g_shared.desc[sizeof g_shared.desc - 1] = 0;
    snprintf(g_line, sizeof g_line, "%s exit=%s out=%016llx err=%016llx %s", id, stx,
             (unsigned long long)g_shared.out_hash, (unsigned long long)err,
             g_shared.desc[0] ? g_shared.desc : "(no description)");
    return g_line;
}

/* The case's standard error as conf_finish() hashed it, for a look at a failing case. */
EMSCRIPTEN_KEEPALIVE const char *conf_stderr(void) { return g_stderr_text ? g_stderr_text : ""; }
