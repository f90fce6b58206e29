/* SPDX-License-Identifier: MIT */
/* A qemu-user TCG plugin counting the guest instructions a process
 * executes: each translated block adds its instruction count to one counter
 * inline when it runs, and the total is printed at exit ("insns: N" on
 * standard error). Only the handful of plugin-API declarations it needs are
 * written out (QEMU 7, plugin API version 1), so no qemu headers are needed.
 *
 *   cc -shared -fPIC -O2 -o qemu_insn_count.so qemu_insn_count.c
 *   qemu-aarch64 -plugin ./qemu_insn_count.so -d plugin PROGRAM ... */
#include <inttypes.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
struct qemu_info_t;
enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };

void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id,
                                           void (*cb)(qemu_plugin_id_t, struct qemu_plugin_tb *));
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb *tb);
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb *tb, enum qemu_plugin_op op,
                                              void *ptr, uint64_t imm);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, void (*cb)(qemu_plugin_id_t, void *),
                                    void *userdata);

__attribute__((visibility("default"))) int qemu_plugin_version = 1;

static uint64_t executed;

static void on_translate(qemu_plugin_id_t id, struct qemu_plugin_tb *tb) {
  (void)id;
  qemu_plugin_register_vcpu_tb_exec_inline(tb, QEMU_PLUGIN_INLINE_ADD_U64, &executed,
                                           qemu_plugin_tb_n_insns(tb));
}

static void report(qemu_plugin_id_t id, void *unused) {
  (void)id;
  (void)unused;
  fprintf(stderr, "insns: %" PRIu64 "\n", executed);
}

__attribute__((visibility("default"))) int qemu_plugin_install(qemu_plugin_id_t id,
                                                               const struct qemu_info_t *info,
                                                               int argc, char **argv) {
  (void)info;
  (void)argc;
  (void)argv;
  qemu_plugin_register_vcpu_tb_trans_cb(id, on_translate);
  qemu_plugin_register_atexit_cb(id, report, NULL);
  return 0;
}
