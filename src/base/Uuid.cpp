#include "base/Uuid.hpp"

#include <pthread.h>
#include <sys/random.h>
#include <uuid/uuid.h>

#include <atomic>
#include <cerrno>
#include <cstring>

namespace quorvane {

namespace {

// Every scan gives each repository a new snapshot id. The kernel's random bytes
// are drawn a few dozen ids at a time: asking for each id alone cost several
// system calls, more than the rest of a quiet repository's share of the scan.
struct RandomPool {
    static constexpr size_t kSize = 16 * 64;
    unsigned char bytes[kSize];
    size_t used = kSize;
    unsigned forks = 0;
};

std::atomic<unsigned> forkCount{0};
// A child of fork starts with its parent's pool; it must not hand out the same ids.
const int forkHandler = ::pthread_atfork(nullptr, nullptr, [] { forkCount.fetch_add(1); });

bool fill(RandomPool& pool) {
    size_t filled = 0;
    while (filled < RandomPool::kSize) {
        ssize_t got = ::getrandom(pool.bytes + filled, RandomPool::kSize - filled, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        filled += static_cast<size_t>(got);
    }
    pool.used = 0;
    pool.forks = forkCount.load();
    return true;
}

}  // namespace

std::string newUUID() {
    thread_local RandomPool pool;
    uuid_t value;
    if (pool.forks != forkCount.load()) pool.used = RandomPool::kSize;
    if (pool.used + sizeof value <= RandomPool::kSize || fill(pool)) {
        std::memcpy(value, pool.bytes + pool.used, sizeof value);
        pool.used += sizeof value;
        // Version 4 (random), variant 1, as uuid_generate_random marks them.
        value[6] = static_cast<unsigned char>((value[6] & 0x0F) | 0x40);
        value[8] = static_cast<unsigned char>((value[8] & 0x3F) | 0x80);
    } else {
        uuid_generate_random(value);
    }
    char text[37];
    uuid_unparse_upper(value, text);
    return std::string(text);
}

}  // namespace quorvane
