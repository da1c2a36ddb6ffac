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
void mxuci_share_heap(void)
{
#ifdef __GLIBC__
    (void)mallopt(M_ARENA_MAX, 1);
#endif
}
