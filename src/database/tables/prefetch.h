#pragma once

/// Asks for the cache line of an address ahead of its use. Loops over rows that lie anywhere in
/// memory call it some rows ahead; the address need not be valid.
inline void prefetch(const void *address)
{
#if defined(__GNUC__)
    __builtin_prefetch(address);
#else
    (void)address;
#endif
}
