#include "FreeMemory.h"

// any header of the C library tells which one it is
#include <cstdlib>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace corvina {

void FreeMemory::giveBackFreePages() {
#if defined(__GLIBC__)
    // 0: keep no free space at the heap's end either; the next read makes what it needs again
    malloc_trim(0);
#endif
}

} // namespace corvina
