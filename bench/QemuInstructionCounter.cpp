// A QEMU TCG plugin that counts the guest instructions qemu-arm executes into a 64-bit
// counter in a file, which bench/arm_instructions.sh reads while the programs run.
//
//   QEMU_PLUGIN="file=<this module>,counter=<file of 8 bytes>" qemu-arm PROGRAM...
//
// The counter file is mapped shared, so every process started with the plugin (the
// controller and its front-ends) adds to the same count, and the count can be read at
// any moment without stopping them. Each translated block adds its number of
// instructions when it runs; the additions are atomic, so threads lose none.
//
// Debian ships QEMU's plugin API without its header; the few declarations below are those
// of the API version 1 (QEMU 7.2), which is what Debian 12's qemu-user loads.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

extern "C" {
typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
struct qemu_info_t;
enum qemu_plugin_cb_flags { QEMU_PLUGIN_CB_NO_REGS, QEMU_PLUGIN_CB_R_REGS, QEMU_PLUGIN_CB_RW_REGS };
typedef void (*qemu_plugin_vcpu_tb_trans_cb_t)(qemu_plugin_id_t id, struct qemu_plugin_tb* tb);
typedef void (*qemu_plugin_vcpu_udata_cb_t)(unsigned int vcpu_index, void* userdata);
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id, qemu_plugin_vcpu_tb_trans_cb_t cb);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* tb);
void qemu_plugin_register_vcpu_tb_exec_cb(struct qemu_plugin_tb* tb, qemu_plugin_vcpu_udata_cb_t cb,
                                          enum qemu_plugin_cb_flags flags, void* userdata);

__attribute__((visibility("default"))) extern const int qemu_plugin_version;
const int qemu_plugin_version = 1;
__attribute__((visibility("default"))) int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t* info,
                                                               int argc, char** argv);
}

namespace {

uint64_t* g_count = nullptr;

void OnBlock(unsigned int, void* instructions) {
    __atomic_fetch_add(g_count, reinterpret_cast<uintptr_t>(instructions), __ATOMIC_RELAXED);
}

void OnTranslate(qemu_plugin_id_t, qemu_plugin_tb* tb) {
    const uintptr_t instructions = qemu_plugin_tb_n_insns(tb);
    qemu_plugin_register_vcpu_tb_exec_cb(tb, OnBlock, QEMU_PLUGIN_CB_NO_REGS, reinterpret_cast<void*>(instructions));
}

}  // namespace

// Refuses to load (non-zero) without a "counter=" file that can be mapped.
int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t*, int argc, char** argv) {
    const char* path = nullptr;
    for (int i = 0; i < argc; ++i) {
        if (std::strncmp(argv[i], "counter=", 8) == 0) {
            path = argv[i] + 8;
        }
    }
    const int fd = path ? open(path, O_RDWR | O_CLOEXEC) : -1;
    if (fd < 0) {
        return -1;
    }
    void* shared = mmap(nullptr, sizeof(uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (shared == MAP_FAILED) {
        return -1;
    }
    g_count = static_cast<uint64_t*>(shared);
    qemu_plugin_register_vcpu_tb_trans_cb(id, OnTranslate);
    return 0;
}
