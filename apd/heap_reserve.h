// Keeps the memory of apd constant.
#ifndef APD_HEAP_RESERVE_H
#define APD_HEAP_RESERVE_H

namespace apd {

// Takes all the heap that apd will ever use from the system and never gives it back. To be called before much is
// allocated and before a second thread starts.
void take_heap();

}  // namespace apd

#endif
