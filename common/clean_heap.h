// Erases heap memory when it is freed, because messages may hold keys.
#ifndef COMMON_CLEAN_HEAP_H
#define COMMON_CLEAN_HEAP_H

namespace kx {

// Makes libevent and OpenSSL erase the memory they free. To be called before any other function of theirs. operator
// delete does so in every program that links clean_heap.cpp.
void clean_libraries_heap();

}  // namespace kx

#endif
