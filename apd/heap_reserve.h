// Keeps the memory of apd from growing with what happens to it.
#ifndef APD_HEAP_RESERVE_H
#define APD_HEAP_RESERVE_H

namespace apd {

// Takes all the heap that apd is ever going to use from the system, for good. To be called before anything allocates
// much, and before there is a second thread.
void take_heap();

}  // namespace apd

#endif
