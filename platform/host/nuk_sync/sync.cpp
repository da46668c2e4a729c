// Mutexes and counting semaphores named by 32-bit handles. A handle names a slot of a two-level
// table (its low 20 bits, the slot's index plus one) and the slot's generation (its high 12 bits).
// Objects stay in their slots for the life of the process, so a lookup takes no lock and never
// reaches freed memory. A destroyed object's slot is used again, under the next generation, once
// kReuseAfter other slots wait for reuse and no call is still inside the old object: a stale
// handle carries the old generation and is refused, and it could only name an object again
// after 4096 reuses of its slot (at least 268 million creations).
#include <pthread.h>
#include <semaphore.h>
#include <time.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <deque>
#include <memory>
#include <mutex>

#include "host.h"
#include "nuk_sync.h"

#ifdef __SANITIZE_THREAD__
#include <sanitizer/tsan_interface.h>
#endif

namespace {

constexpr uint32_t kFail = 1;
constexpr uint32_t kIndexBits = 20;
constexpr uint32_t kIndexMask = (1u << kIndexBits) - 1;
constexpr uint32_t kSlots = kIndexMask; // low bits 1 .. 2^20 - 1
constexpr uint32_t kGenerations = 1u << (32 - kIndexBits);
constexpr size_t kReuseAfter = 65536;

// What every object carries besides its primitive. `users` counts the calls inside the object, so
// that a slot is never re-initialised under a call that looked its handle up before the destroy.
struct Slot {
    std::atomic<uint32_t> handle{0}; // the handle naming the object now; 0 while destroyed
    std::atomic<uint32_t> users{0};
    uint32_t generation = 0; // changed under the table's lock only
};

struct HostMutex : Slot {
    pthread_mutex_t mutex;
    bool init() {
        pthread_mutexattr_t attr;
        pthread_mutexattr_init(&attr);
        // A second lock by the holder fails instead of hanging the script for ever.
        pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_ERRORCHECK);
        bool ok = pthread_mutex_init(&mutex, &attr) == 0;
        pthread_mutexattr_destroy(&attr);
        return ok;
    }
};

// glibc's semaphore: its uncontended wait and post are one atomic operation each.
struct HostSema : Slot {
    sem_t sem;
};

template <typename T> class HandleTable {
  public:
    static constexpr uint32_t kChunk = 1024;

    // Stores a new object, made ready by `init` (false: the slot is given back); 0 when every
    // slot is taken. Nothing is allocated but the slots themselves, a chunk at a time.
    template <typename Init> uint32_t add(Init init) {
        std::lock_guard guard(lock_);
        uint32_t index = 0;
        bool reused = false;
        if (!take(&index, &reused)) return 0;
        T &object = at(index);
        if (!init(object)) {
            if (reused)
                freed_.push_front(index);
            else
                --next_;
            return 0;
        }
        if (reused) object.generation = (object.generation + 1) % kGenerations;
        uint32_t handle = object.generation << kIndexBits | (index + 1);
        object.handle.store(handle);
        return handle;
    }

    // The live object `handle` names, counted as in use until leave(); null for a handle that
    // names none (never made, destroyed, or of an older generation).
    T *enter(uint32_t handle) {
        uint32_t index = (handle & kIndexMask) - 1;
        if ((handle & kIndexMask) == 0) return nullptr;
        auto *chunk = chunks_[index / kChunk].load(std::memory_order_acquire);
        if (chunk == nullptr) return nullptr;
        T &object = (*chunk)[index % kChunk];
        object.users.fetch_add(1);
        if (object.handle.load() == handle) return &object;
        leave(object);
        return nullptr;
    }
    static void leave(T &object) { object.users.fetch_sub(1, std::memory_order_release); }

    // Destroys the object `handle` names: `retire` runs once, by the caller that destroyed it.
    template <typename Retire> bool remove(uint32_t handle, Retire retire) {
        T *object = enter(handle);
        if (object == nullptr) return false;
        uint32_t expected = handle;
        bool destroyed = object->handle.compare_exchange_strong(expected, 0);
        if (destroyed) retire(*object);
        leave(*object);
        if (destroyed) {
            std::lock_guard guard(lock_);
            freed_.push_back((handle & kIndexMask) - 1);
        }
        return destroyed;
    }

  private:
    T &at(uint32_t index) {
        return (*chunks_[index / kChunk].load(std::memory_order_relaxed))[index % kChunk];
    }

    // A freed slot once enough wait (the longest-waiting first), or when no fresh one is left; a
    // slot still in use by a call on its old object waits on. Otherwise a fresh slot.
    bool take(uint32_t *index, bool *reused) {
        if (freed_.size() >= kReuseAfter || next_ >= kSlots) {
            for (size_t tries = std::min<size_t>(freed_.size(), 16); tries > 0; --tries) {
                uint32_t candidate = freed_.front();
                freed_.pop_front();
                if (at(candidate).users.load() == 0) {
                    *index = candidate;
                    *reused = true;
                    return true;
                }
                freed_.push_back(candidate);
            }
        }
        if (next_ >= kSlots) return false;
        auto &chunk = chunks_[next_ / kChunk];
        if (chunk.load(std::memory_order_relaxed) == nullptr) {
            auto *fresh = new (std::nothrow) std::array<T, kChunk>();
            if (fresh == nullptr) return false;
            chunk.store(fresh, std::memory_order_release);
        }
        *index = next_++;
        *reused = false;
        return true;
    }

    std::mutex lock_;
    uint32_t next_ = 0;
    std::deque<uint32_t> freed_;
    std::array<std::atomic<std::array<T, kChunk> *>, (kSlots + kChunk) / kChunk> chunks_{};
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
    T *object = table.enter(id);
    if (object == nullptr) return kFail;
    uint32_t result = op(*object);
    HandleTable<T>::leave(*object);
    return result;
}

// Creates an object and stores its handle.
template <typename T, typename Init>
uint32_t create(const char *service, HandleTable<T> &table, uint32_t *id, Init init) {
    uint32_t fail = 0;
    if (id == nullptr) return kFail;
    if (injected_result(service, &fail)) return fail;
    uint32_t handle = table.add(init);
    if (handle == 0) return kFail;
    *id = handle;
    return 0;
}

template <typename T, typename Retire>
uint32_t destroy(const char *service, HandleTable<T> &table, uint32_t id, Retire retire) {
    uint32_t fail = 0;
    if (injected_result(service, &fail)) return fail;
    return table.remove(id, retire) ? 0 : kFail;
}

// Tries of a semaphore wait before it sleeps: a few microseconds in all.
constexpr int kSpins = 100;

inline void relax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
    asm volatile("yield");
#endif
}

uint32_t posix(int rc) {
    return rc == 0 ? 0 : kFail;
}

// Waits for a unit of `s`: 0, NUK_SEMA_TIMEOUT, or the error of a semaphore deleted meanwhile.
uint32_t sema_wait(HostSema &s, uint32_t id, uint32_t timeoutMs) {
    int rc = sem_trywait(&s.sem);
    // A unit held for a moment by another core comes back sooner than a sleep and a wake-up
    // would take: a short spin first keeps the hand-over out of the kernel.
    for (int spin = 0; rc != 0 && timeoutMs != 0 && spin < kSpins; ++spin) {
        relax();
        rc = sem_trywait(&s.sem);
    }
    if (rc != 0 && timeoutMs == NUK_WAIT_FOREVER) {
        while ((rc = sem_wait(&s.sem)) != 0 && errno == EINTR) {
        }
    } else if (rc != 0 && timeoutMs != 0) {
        timespec deadline{};
        clock_gettime(CLOCK_MONOTONIC, &deadline);
        deadline.tv_sec += timeoutMs / 1000;
        deadline.tv_nsec += static_cast<long>(timeoutMs % 1000) * 1000000L;
        if (deadline.tv_nsec >= 1000000000L) {
            deadline.tv_sec += 1;
            deadline.tv_nsec -= 1000000000L;
        }
        while ((rc = sem_clockwait(&s.sem, CLOCK_MONOTONIC, &deadline)) != 0 && errno == EINTR) {
        }
#ifdef __SANITIZE_THREAD__
        // ThreadSanitizer follows sem_post and sem_timedwait but not sem_clockwait.
        if (rc == 0) __tsan_acquire(&s.sem);
#endif
    }
    if (s.handle.load() != id) {
        // Deleted while waiting: the unit was the deleter's wake-up, handed on to the next waiter.
        if (rc == 0) sem_post(&s.sem);
        return kFail;
    }
    return rc == 0 ? 0 : NUK_SEMA_TIMEOUT;
}

} // namespace

extern "C" {

uint32_t NUK_MutexInit(uint32_t *mutexId, uint32_t) {
    return create("NUK_MutexInit", mutexes(), mutexId, [](HostMutex &m) { return m.init(); });
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

// A mutex destroyed while held stays held for whoever waits on it, as before; its slot is
// re-initialised only when a later creation takes it.
uint32_t NUK_MutexDestroy(uint32_t mutexId) {
    return destroy("NUK_MutexDestroy", mutexes(), mutexId, [](HostMutex &) {});
}

// Counts above SEM_VALUE_MAX (2^31 - 1) cannot be held: such a creation, or a post beyond it,
// fails.
uint32_t NUK_SemaCreate(const char *, uint32_t initialCount, uint32_t, uint32_t *semaId) {
    if (initialCount > static_cast<uint32_t>(SEM_VALUE_MAX)) return kFail;
    return create("NUK_SemaCreate", semaphores(), semaId,
                  [initialCount](HostSema &s) { return sem_init(&s.sem, 0, initialCount) == 0; });
}

uint32_t NUK_SemaP(uint32_t semaId, uint32_t timeoutMs) {
    return on_object("NUK_SemaP", semaphores(), semaId,
                     [semaId, timeoutMs](HostSema &s) { return sema_wait(s, semaId, timeoutMs); });
}

uint32_t NUK_SemaV(uint32_t semaId) {
    return on_object("NUK_SemaV", semaphores(), semaId, [](HostSema &s) { return posix(sem_post(&s.sem)); });
}

// Waiters wake with an error: one unit is posted, and each waiter that finds the semaphore
// deleted hands it on.
uint32_t NUK_SemaDelete(uint32_t semaId) {
    return destroy("NUK_SemaDelete", semaphores(), semaId, [](HostSema &s) { sem_post(&s.sem); });
}

} // extern "C"
