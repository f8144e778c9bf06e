#pragma once
// Clang thread-safety annotations (checked with -Wthread-safety) and a thin annotated mutex.
// Under other compilers the annotations expand to nothing.
//
// Lock order of the library, outermost first:
//   SyncHelper's drop lock or crop lock (never both, never the crop lock with another lock)
//   -> SyncQueue::mQueueLock -> one SyncElement::mLock -> MasterCamSyncDataUpdater::mLock

#include <mutex>

#if defined(__clang__)
#define RYX_TSA(x) __attribute__((x))
#else
#define RYX_TSA(x)
#endif

#define RYX_CAPABILITY(x) RYX_TSA(capability(x))
#define RYX_SCOPED_CAPABILITY RYX_TSA(scoped_lockable)
#define RYX_GUARDED_BY(x) RYX_TSA(guarded_by(x))
#define RYX_PT_GUARDED_BY(x) RYX_TSA(pt_guarded_by(x))
#define RYX_ACQUIRED_AFTER(...) RYX_TSA(acquired_after(__VA_ARGS__))
#define RYX_ACQUIRED_BEFORE(...) RYX_TSA(acquired_before(__VA_ARGS__))
#define RYX_REQUIRES(...) RYX_TSA(requires_capability(__VA_ARGS__))
#define RYX_EXCLUDES(...) RYX_TSA(locks_excluded(__VA_ARGS__))
#define RYX_ACQUIRE(...) RYX_TSA(acquire_capability(__VA_ARGS__))
#define RYX_RELEASE(...) RYX_TSA(release_capability(__VA_ARGS__))
#define RYX_RETURN_CAPABILITY(x) RYX_TSA(lock_returned(x))
#define RYX_NO_THREAD_SAFETY_ANALYSIS RYX_TSA(no_thread_safety_analysis)

namespace NSCam {
namespace camsys {
namespace camcoordinator {

// std::mutex with annotations. native() exposes the std::mutex for condition-variable waits,
// which release and re-take it while the capability stays held from the analysis' view.
class RYX_CAPABILITY("mutex") Mutex {
  public:
    void lock() RYX_ACQUIRE() { mMutex.lock(); }
    void unlock() RYX_RELEASE() { mMutex.unlock(); }
    std::mutex& native() { return mMutex; }

  private:
    std::mutex mMutex;
};

// Scoped lock over Mutex.
class RYX_SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(Mutex& mutex) RYX_ACQUIRE(mutex) : mMutex(mutex) { mMutex.lock(); }
    ~MutexLock() RYX_RELEASE() { mMutex.unlock(); }
    MutexLock(MutexLock const&) = delete;
    MutexLock& operator=(MutexLock const&) = delete;

  private:
    Mutex& mMutex;
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
