// Erases memory of the heap when it is freed: what passes through apd may hold keys.
#ifndef APD_CLEAN_HEAP_H
#define APD_CLEAN_HEAP_H

namespace apd {

// Has libevent and OpenSSL free through this as well, as operator delete does in a program that links it. To be called
// before anything of theirs.
void clean_libraries_heap();

}  // namespace apd

#endif
