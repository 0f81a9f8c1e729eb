// Stand-in tool that wants a lot of memory: allocates and touches 1 GiB, then exits 0; exits 3
// when the allocation is refused (as under a memory limit).
#include <cstdlib>
#include <cstring>

int main() {
    constexpr std::size_t size = std::size_t{1} << 30;
    void* block = std::malloc(size);
    if (!block) return 3;
    std::memset(block, 1, size);
    std::free(block);
    return 0;
}
