// Any bytes at all as a parameter file: what is taken can be written and comes back the same.

// Before Meschach, which declares isatty its own way.
#include <sys/mman.h>
#include <unistd.h>

#include <kshost_app.h>
#include <kslib/kslt.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

void ignore(void*, int, int, const char*) {}

/// A file in memory that has a path.
class MemoryFile {
public:
    MemoryFile() : descriptor_(memfd_create("parameters", 0)) {
        if (descriptor_ < 0) __builtin_trap();
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { close(descriptor_); }
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }
    void fill(const std::uint8_t* data, std::size_t size) const {
        if (write(descriptor_, data, size) != static_cast<ssize_t>(size)) __builtin_trap();
    }

private:
    int descriptor_;
};

struct Parameters {
    MAT* forward = nullptr;
    MAT* inverse = nullptr;
    VEC* s = nullptr;
    IVEC* c = nullptr;

    bool read(const MemoryFile& file) { return KSReadLTP(file.path().c_str(), &forward, &inverse, &s, &c) == 0; }
    bool write(const MemoryFile& file) const { return KSWriteLTP(file.path().c_str(), forward, inverse, s, c) == 0; }
    Parameters() = default;
    Parameters(const Parameters&) = delete;
    Parameters& operator=(const Parameters&) = delete;
    ~Parameters() {
        if (forward != nullptr) m_free(forward);
        if (inverse != nullptr) m_free(inverse);
        if (s != nullptr) v_free(s);
        if (c != nullptr) iv_free(c);
    }
};

bool same(const MAT& a, const MAT& b) {
    if (a.m != b.m || a.n != b.n) return false;
    for (u_int row = 0; row < a.m; ++row) {
        if (std::memcmp(a.me[row], b.me[row], a.n * sizeof(double)) != 0) return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    KSHostSetErrorHandler(ignore, nullptr);
    const MemoryFile given;
    given.fill(data, size);
    Parameters first;
    if (!first.read(given)) {
        if (first.forward != nullptr || first.inverse != nullptr || first.s != nullptr || first.c != nullptr) {
            __builtin_trap();
        }
        return 0;
    }
    const MemoryFile written;
    Parameters second;
    if (!first.write(written) || !second.read(written)) __builtin_trap();
    const bool equal = same(*first.forward, *second.forward) && same(*first.inverse, *second.inverse) &&
                       first.s->dim == second.s->dim && first.c->dim == second.c->dim &&
                       std::memcmp(first.s->ve, second.s->ve, first.s->dim * sizeof(double)) == 0 &&
                       std::memcmp(first.c->ive, second.c->ive, first.c->dim * sizeof(int)) == 0;
    if (!equal) __builtin_trap();
    return 0;
}
