/* A qemu-user TCG plugin (plugin API version 1, qemu 7.x) that counts the executions of
   every translated block and, at exit, writes one line per block executed: its guest
   address, its instruction count and its executions, then the guest mappings of the
   files named by the plugin argument `map=NAME` (a substring), so that a block's address
   can be placed in a library.  Output file: the plugin argument `out=PATH`.
   Build: cc -shared -fPIC -O2 -o qemu_blocks.so qemu_blocks.c
   Use:   qemu-aarch64 -L /usr/aarch64-linux-gnu -plugin ./qemu_blocks.so,out=blocks.txt,map=eqdrc PROGRAM ARGS */
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
typedef struct qemu_info_t qemu_info_t;
enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };
typedef void (*qemu_plugin_vcpu_tb_trans_cb_t)(qemu_plugin_id_t, struct qemu_plugin_tb *);
typedef void (*qemu_plugin_udata_cb_t)(qemu_plugin_id_t, void *);
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t, qemu_plugin_vcpu_tb_trans_cb_t);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb *);
uint64_t qemu_plugin_tb_vaddr(const struct qemu_plugin_tb *);
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb *, enum qemu_plugin_op, void *, uint64_t);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t, qemu_plugin_udata_cb_t, void *);

__attribute__((visibility("default"))) int qemu_plugin_version = 1;

struct block {
    uint64_t vaddr, insns, count;
    struct block *next;
};
static struct block *blocks;
static char out_path[4096] = "blocks.txt", map_name[256] = "";

static void tb_trans(qemu_plugin_id_t id, struct qemu_plugin_tb *tb)
{
    (void)id;
    /* A block translated again (after a flush) gets a record of its own; the reader adds them. */
    struct block *b = calloc(1, sizeof *b);
    if (b == NULL)
        return;
    b->vaddr = qemu_plugin_tb_vaddr(tb);
    b->insns = qemu_plugin_tb_n_insns(tb);
    b->next = blocks;
    blocks = b;
    qemu_plugin_register_vcpu_tb_exec_inline(tb, QEMU_PLUGIN_INLINE_ADD_U64, &b->count, 1);
}

static void at_exit(qemu_plugin_id_t id, void *p)
{
    (void)id;
    (void)p;
    FILE *f = fopen(out_path, "w");
    if (f == NULL)
        return;
    for (const struct block *b = blocks; b != NULL; b = b->next)
        if (b->count != 0)
            fprintf(f, "%llx %llu %llu\n", (unsigned long long)b->vaddr, (unsigned long long)b->insns,
                    (unsigned long long)b->count);
    /* qemu-user maps the guest at the same addresses in its own process. */
    FILE *maps = fopen("/proc/self/maps", "r");
    char line[4096];
    while (maps != NULL && map_name[0] != '\0' && fgets(line, sizeof line, maps) != NULL)
        if (strstr(line, map_name) != NULL)
            fprintf(f, "# %s", line);
    if (maps != NULL)
        fclose(maps);
    fclose(f);
}

__attribute__((visibility("default"))) int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t *info,
                                                               int argc, char **argv)
{
    (void)info;
    for (int i = 0; i < argc; i++) {
        if (strncmp(argv[i], "out=", 4) == 0)
            snprintf(out_path, sizeof out_path, "%s", argv[i] + 4);
        else if (strncmp(argv[i], "map=", 4) == 0)
            snprintf(map_name, sizeof map_name, "%s", argv[i] + 4);
    }
    qemu_plugin_register_vcpu_tb_trans_cb(id, tb_trans);
    qemu_plugin_register_atexit_cb(id, at_exit, NULL);
    return 0;
}
