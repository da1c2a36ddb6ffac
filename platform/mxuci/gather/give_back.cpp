#include "mxuci_gather.h"

#include <malloc.h>

// Other C libraries give back by themselves what was freed between pieces that stay.
void mxuci_give_memory_back(void)
{
#ifdef __GLIBC__
    (void)malloc_trim(0);
#endif
}

// Other C libraries have one heap for all threads.
void mxuci_arrange_heap(void)
{
#ifdef __GLIBC__
    constexpr int most_kept = 8 << 20, largest_inside = 512 << 10;
    (void)mallopt(M_ARENA_MAX, 1);
    (void)mallopt(M_TRIM_THRESHOLD, most_kept);
    (void)mallopt(M_MMAP_THRESHOLD, largest_inside);
#endif
}
