// libFuzzer's entry point.
#include <memory>

#include "input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::unique_ptr<uint8_t[]> copy(new uint8_t[size]);
    std::copy_n(data, size, copy.get());
    fuzz_one({copy.get(), size});
    return 0;
}
