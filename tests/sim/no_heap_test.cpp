// The daemon allocates nothing: not at start-up, not after it, not by way of libc.
//
// This program's malloc counts what is asked of it while the daemon's code runs, the libc functions it calls included.
// The calls that lead to the simulated platform are not the daemon's, and with them the streams that libc allocates for
// any program: the dump's (fdopen, until fclose) and a port's log. What the daemon writes to a stream allocates
// nothing.
#include <malloc.h>
#include <stdlib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "inside.h"
#include "kx/kx_log.h"
#include "scenarios.h"

namespace sim {
namespace {

unsigned allocations = 0;
size_t last_size = 0;

void count(size_t size) {
    if (daemon_runs) {
        allocations++;
        last_size = size;
    }
}

}  // namespace
}  // namespace sim

extern "C" {

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *old, size_t size);
void *__libc_memalign(size_t alignment, size_t size);

void *malloc(size_t size) {
    sim::count(size);
    return __libc_malloc(size);
}

void *calloc(size_t count, size_t size) {
    sim::count(size * count);
    return __libc_calloc(count, size);
}

void *realloc(void *old, size_t size) {
    sim::count(size);
    return __libc_realloc(old, size);
}

void *memalign(size_t alignment, size_t size) {
    sim::count(size);
    return __libc_memalign(alignment, size);
}

void *aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }

int posix_memalign(void **out, size_t alignment, size_t size) {
    *out = memalign(alignment, size);
    return *out != nullptr ? 0 : ENOMEM;
}
}

namespace sim {
namespace {

class no_heap : public testing::TestWithParam<scenario> {
protected:
    void SetUp() override { allocations = 0; }
};

// Keeps the compiler from removing an allocation that nothing uses.
void use(void *memory) { __asm__ volatile("" : : "r"(memory) : "memory"); }

unsigned counted(void (*what)()) {
    const unsigned before = allocations;
    {
        const inside daemon;
        what();
    }
    return allocations - before;
}

}  // namespace

TEST_P(no_heap, is_used_at_any_log_level) {
    for (int level = 0; level <= 4; level++) {
        daemon_run run(level);
        kx_log_conf_data.console = level > 1 ? 1 : 0;
        GetParam().before(run);
        GetParam().events(run);
        run.everyday();
        EXPECT_EQ(0U, allocations) << "at log level " << level << ", the last one of " << last_size << " bytes";
        run.sim.check_end();
    }
}

INSTANTIATE_TEST_SUITE_P(scenarios, no_heap, testing::ValuesIn(SCENARIOS),
                         [](const auto &instance) { return std::string(instance.param.name); });

TEST(no_heap_count, notices_every_way_to_allocate) {
    EXPECT_EQ(1U, counted([] { free(malloc(10)); }));
    EXPECT_EQ(1U, counted([] { free(calloc(2, 10)); }));
    EXPECT_EQ(1U, counted([] { free(realloc(nullptr, 10)); }));
    EXPECT_EQ(1U, counted([] { free(reallocarray(nullptr, 2, 10)); }));
    EXPECT_EQ(1U, counted([] { free(aligned_alloc(64, 64)); }));
    EXPECT_EQ(1U, counted([] { free(memalign(64, 64)); }));
    EXPECT_EQ(1U, counted([] {
                  void *memory = nullptr;
                  use(posix_memalign(&memory, 64, 64) == 0 ? memory : nullptr);
                  free(memory);
              }));
    EXPECT_EQ(1U, counted([] { use(std::make_unique<int>(1).get()); }));
    EXPECT_EQ(1U, counted([] { use(std::make_unique<char[]>(10).get()); }));
    EXPECT_EQ(1U, counted([] { free(strdup("text")); }));
    EXPECT_EQ(1U, counted([] { free(strndup("text", 2)); }));
    EXPECT_LE(1U, counted([] {
                  char *text = nullptr;
                  use(asprintf(&text, "%d", 1) == 1 ? text : nullptr);
                  free(text);
              }));
    EXPECT_LE(1U, counted([] { fclose(fopen("/dev/null", "r")); }));
    EXPECT_LE(1U, counted([] {
                  char *line = nullptr;
                  size_t size = 0;
                  FILE *empty = fopen("/dev/null", "r");
                  use(getline(&line, &size, empty) < 0 ? line : nullptr);
                  fclose(empty);
                  free(line);
              }));
}

TEST(no_heap_count, leaves_the_platform_out) {
    EXPECT_EQ(0U, counted([] {
                  const outside platform;
                  free(malloc(10));
              }));
}

}  // namespace sim
