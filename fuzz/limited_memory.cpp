// The library's allocations, linked with --wrap: what claims more than the limit is refused, as on
// a machine without memory, so that a few bytes that name a huge image or PSF cost no time.
#include <cstddef>
#include <cstdlib>

namespace {
constexpr std::size_t largestAllocation = std::size_t{256} << 10;
}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);

void* __wrap_malloc(std::size_t size) {
    return size <= largestAllocation ? __real_malloc(size) : nullptr;
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    return size == 0 || count <= largestAllocation / size ? __real_calloc(count, size) : nullptr;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
