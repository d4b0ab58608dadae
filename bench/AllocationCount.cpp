// Counts the heap allocations of a whole program, for the benchmark's "allocations per message".
// Loaded with LD_PRELOAD: every malloc, calloc, and realloc of no block (operator new and Qt's
// containers allocate through malloc) adds one, with the bytes asked for. At exit it writes
// "<allocations> <bytes>" to the file named by CORVINA_ALLOCATION_COUNT. Run by scripts/bench.
#include <atomic>
#include <cstdio>
#include <cstdlib>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
}

namespace {

std::atomic<unsigned long> allocations{0};
std::atomic<unsigned long> bytes{0};

void count(size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    bytes.fetch_add(size, std::memory_order_relaxed);
}

__attribute__((destructor)) void report() {
    const char* path = std::getenv("CORVINA_ALLOCATION_COUNT");
    if (!path || !*path) {
        return;
    }
    if (FILE* out = std::fopen(path, "w")) {
        std::fprintf(out, "%lu %lu\n", allocations.load(), bytes.load());
        std::fclose(out);
    }
}

} // namespace

extern "C" void* malloc(size_t size) noexcept {
    count(size);
    return __libc_malloc(size);
}

extern "C" void* calloc(size_t n, size_t size) noexcept {
    count(n * size);
    return __libc_calloc(n, size);
}

extern "C" void* realloc(void* block, size_t size) noexcept {
    if (!block) {
        count(size);
    }
    return __libc_realloc(block, size);
}
