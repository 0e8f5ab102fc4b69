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
// With "profile=<path>" each process also counts the runs of every block and writes them
// when it exits to <path>.<pid>: the offset of the guest's addresses in the emulator's
// ("base"), the emulator's memory map ("map", to find the library of an address) and one
// "block <guest address> <instructions> <runs>" line per block that ran.
// bench/arm_profile.py turns those files into instructions per library and function.
//
// Debian ships QEMU's plugin API without its header; the few declarations below are those
// of the API version 1 (QEMU 7.2), which is what Debian 12's qemu-user loads.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

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
struct qemu_plugin_insn;
uint64_t qemu_plugin_tb_vaddr(const struct qemu_plugin_tb* tb);
struct qemu_plugin_insn* qemu_plugin_tb_get_insn(const struct qemu_plugin_tb* tb, size_t index);
void* qemu_plugin_insn_haddr(const struct qemu_plugin_insn* insn);
uint64_t qemu_plugin_insn_vaddr(const struct qemu_plugin_insn* insn);
typedef void (*qemu_plugin_udata_cb_t)(qemu_plugin_id_t id, void* userdata);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, qemu_plugin_udata_cb_t cb, void* userdata);

__attribute__((visibility("default"))) extern const int qemu_plugin_version;
const int qemu_plugin_version = 1;
__attribute__((visibility("default"))) int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t* info,
                                                               int argc, char** argv);
}

namespace {

uint64_t* g_count = nullptr;

// The profile: one entry per translated block (its address and length), made on the
// translating thread under the mutex; runs are counted atomically by the running threads.
struct SBlock {
    uint64_t address;
    uint64_t instructions;
    uint64_t runs;
};
std::mutex g_mutex;
std::unordered_map<uint64_t, std::unique_ptr<SBlock>> g_blocks;  // by address and length
intptr_t g_base = 0;
std::string g_profile;

void OnBlock(unsigned int, void* instructions) {
    __atomic_fetch_add(g_count, reinterpret_cast<uintptr_t>(instructions), __ATOMIC_RELAXED);
}

void OnProfiledBlock(unsigned int, void* data) {
    SBlock* block = static_cast<SBlock*>(data);
    __atomic_fetch_add(g_count, block->instructions, __ATOMIC_RELAXED);
    __atomic_fetch_add(&block->runs, 1, __ATOMIC_RELAXED);
}

void OnTranslate(qemu_plugin_id_t, qemu_plugin_tb* tb) {
    const uintptr_t instructions = qemu_plugin_tb_n_insns(tb);
    if (g_profile.empty()) {
        qemu_plugin_register_vcpu_tb_exec_cb(tb, OnBlock, QEMU_PLUGIN_CB_NO_REGS,
                                             reinterpret_cast<void*>(instructions));
        return;
    }
    const uint64_t address = qemu_plugin_tb_vaddr(tb);
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_base == 0 && instructions > 0) {
        const qemu_plugin_insn* first = qemu_plugin_tb_get_insn(tb, 0);
        g_base = reinterpret_cast<intptr_t>(qemu_plugin_insn_haddr(first)) -
                 static_cast<intptr_t>(qemu_plugin_insn_vaddr(first));
    }
    std::unique_ptr<SBlock>& block = g_blocks[address << 12 | (instructions & 0xfff)];
    if (!block) {
        block = std::make_unique<SBlock>(SBlock{address, instructions, 0});
    }
    qemu_plugin_register_vcpu_tb_exec_cb(tb, OnProfiledBlock, QEMU_PLUGIN_CB_NO_REGS, block.get());
}

void WriteProfile(qemu_plugin_id_t, void*) {
    const std::string path = g_profile + "." + std::to_string(getpid());
    FILE* out = fopen(path.c_str(), "w");
    if (!out) {
        return;
    }
    fprintf(out, "base %llx\n", static_cast<unsigned long long>(g_base));
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        fprintf(out, "map %s\n", line.c_str());
    }
    std::lock_guard<std::mutex> lock(g_mutex);
    for (const auto& entry : g_blocks) {
        const SBlock& block = *entry.second;
        const uint64_t runs = __atomic_load_n(&block.runs, __ATOMIC_RELAXED);
        if (runs) {
            fprintf(out, "block %llx %llu %llu\n", static_cast<unsigned long long>(block.address),
                    static_cast<unsigned long long>(block.instructions), static_cast<unsigned long long>(runs));
        }
    }
    fclose(out);
}

}  // namespace

// Refuses to load (non-zero) without a "counter=" file that can be mapped.
int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t*, int argc, char** argv) {
    const char* path = nullptr;
    for (int i = 0; i < argc; ++i) {
        if (std::strncmp(argv[i], "counter=", 8) == 0) {
            path = argv[i] + 8;
        } else if (std::strncmp(argv[i], "profile=", 8) == 0) {
            g_profile = argv[i] + 8;
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
    if (!g_profile.empty()) {
        qemu_plugin_register_atexit_cb(id, WriteProfile, nullptr);
    }
    return 0;
}
