// Mutexes and counting semaphores named by 32-bit handles. Handles index a two-level table of
// objects that are never freed or reused while the process runs, so a stale handle finds a
// destroyed object (and an error) rather than freed memory, and lookups take no lock.
#include <pthread.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "host.h"
#include "nuk_sync.h"

namespace {

constexpr uint32_t kFail = 1;

struct HostMutex {
    pthread_mutex_t mutex;
    std::atomic<bool> alive{true};
    HostMutex() {
        pthread_mutexattr_t attr;
        pthread_mutexattr_init(&attr);
        // A second lock by the holder fails instead of hanging the script for ever.
        pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_ERRORCHECK);
        pthread_mutex_init(&mutex, &attr);
        pthread_mutexattr_destroy(&attr);
    }
};

struct HostSema {
    std::mutex lock;
    std::condition_variable posted;
    uint64_t count;
    std::atomic<bool> alive{true};
    explicit HostSema(uint32_t initial) : count(initial) {}
};

template <typename T> class HandleTable {
  public:
    static constexpr uint32_t kChunk = 1024;
    static constexpr uint32_t kChunks = 1024;

    // Adds an object; 0 when the table is full.
    uint32_t add(T *object) {
        std::lock_guard guard(grow_);
        uint32_t index = next_;
        if (index >= kChunk * kChunks) return 0;
        auto &chunk = chunks_[index / kChunk];
        if (chunk.load(std::memory_order_acquire) == nullptr)
            chunk.store(new std::array<std::atomic<T *>, kChunk>{}, std::memory_order_release);
        (*chunk.load(std::memory_order_acquire))[index % kChunk].store(object, std::memory_order_release);
        ++next_;
        return index + 1;
    }

    T *find(uint32_t handle) const {
        if (handle == 0 || handle > kChunk * kChunks) return nullptr;
        uint32_t index = handle - 1;
        auto *chunk = chunks_[index / kChunk].load(std::memory_order_acquire);
        if (chunk == nullptr) return nullptr;
        T *object = (*chunk)[index % kChunk].load(std::memory_order_acquire);
        return (object != nullptr && object->alive.load(std::memory_order_acquire)) ? object : nullptr;
    }

  private:
    std::mutex grow_;
    uint32_t next_ = 0;
    std::array<std::atomic<std::array<std::atomic<T *>, kChunk> *>, kChunks> chunks_{};
};

HandleTable<HostMutex> &mutexes() {
    static auto *table = new HandleTable<HostMutex>();
    return *table;
}
HandleTable<HostSema> &semaphores() {
    static auto *table = new HandleTable<HostSema>();
    return *table;
}

uint32_t injected_result(const char *service, uint32_t *out) {
    int64_t result = 0;
    if (!zakhost::injected(service, &result)) return 0;
    *out = result == 0 ? kFail : static_cast<uint32_t>(result);
    return 1;
}

// One call on an existing object: fault injection first, then the handle lookup, then `op`.
template <typename T, typename Op>
uint32_t on_object(const char *service, HandleTable<T> &table, uint32_t id, Op op) {
    uint32_t fail = 0;
    if (injected_result(service, &fail)) return fail;
    T *object = table.find(id);
    return object != nullptr ? op(*object) : kFail;
}

// Creates an object and stores its handle.
template <typename T, typename Make>
uint32_t create(const char *service, HandleTable<T> &table, uint32_t *id, Make make) {
    uint32_t fail = 0;
    if (id == nullptr) return kFail;
    if (injected_result(service, &fail)) return fail;
    uint32_t handle = table.add(make());
    if (handle == 0) return kFail;
    *id = handle;
    return 0;
}

uint32_t posix(int rc) {
    return rc == 0 ? 0 : kFail;
}

template <typename T> uint32_t retire(T &object) {
    object.alive.store(false, std::memory_order_release);
    return 0;
}

} // namespace

extern "C" {

uint32_t NUK_MutexInit(uint32_t *mutexId, uint32_t) {
    return create("NUK_MutexInit", mutexes(), mutexId, [] { return new HostMutex(); });
}

uint32_t NUK_MutexLock(uint32_t mutexId) {
    return on_object("NUK_MutexLock", mutexes(), mutexId,
                     [](HostMutex &m) { return posix(pthread_mutex_lock(&m.mutex)); });
}

uint32_t NUK_MutexTrylock(uint32_t mutexId) {
    return on_object("NUK_MutexTrylock", mutexes(), mutexId,
                     [](HostMutex &m) { return posix(pthread_mutex_trylock(&m.mutex)); });
}

uint32_t NUK_MutexUnlock(uint32_t mutexId) {
    return on_object("NUK_MutexUnlock", mutexes(), mutexId,
                     [](HostMutex &m) { return posix(pthread_mutex_unlock(&m.mutex)); });
}

uint32_t NUK_MutexDestroy(uint32_t mutexId) {
    return on_object("NUK_MutexDestroy", mutexes(), mutexId, retire<HostMutex>);
}

uint32_t NUK_SemaCreate(const char *, uint32_t initialCount, uint32_t, uint32_t *semaId) {
    return create("NUK_SemaCreate", semaphores(), semaId,
                  [initialCount] { return new HostSema(initialCount); });
}

uint32_t NUK_SemaP(uint32_t semaId, uint32_t timeoutMs) {
    return on_object("NUK_SemaP", semaphores(), semaId, [timeoutMs](HostSema &s) -> uint32_t {
        std::unique_lock lock(s.lock);
        auto ready = [&s] { return s.count > 0 || !s.alive.load(); };
        if (timeoutMs == NUK_WAIT_FOREVER) {
            s.posted.wait(lock, ready);
        } else if (!s.posted.wait_for(lock, std::chrono::milliseconds(timeoutMs), ready)) {
            return NUK_SEMA_TIMEOUT;
        }
        if (!s.alive.load()) return kFail; // deleted while waiting
        --s.count;
        return 0;
    });
}

uint32_t NUK_SemaV(uint32_t semaId) {
    return on_object("NUK_SemaV", semaphores(), semaId, [](HostSema &s) -> uint32_t {
        {
            std::lock_guard lock(s.lock);
            ++s.count;
        }
        s.posted.notify_one();
        return 0;
    });
}

uint32_t NUK_SemaDelete(uint32_t semaId) {
    return on_object("NUK_SemaDelete", semaphores(), semaId, [](HostSema &s) -> uint32_t {
        {
            std::lock_guard lock(s.lock);
            s.alive.store(false, std::memory_order_release);
        }
        s.posted.notify_all();
        return 0;
    });
}

} // extern "C"
