#pragma once
// Host implementation of the camera stack's registry of per-session shared data.
//
// A container holds items of one type for one session key. Components attach to it as readers
// or writers through IGenericContainer<T>::makeUser<Reader or Writer>(userName, key, type): the
// registry (IGenericContainerManager::get()) finds the container registered for (key, T) or makes
// and registers an empty one. The registry keeps containers by weak reference, so a container
// lives exactly as long as one of its user handles does. makeUser returns an empty pointer when
// the registry is unavailable. All operations are thread-safe.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <typeindex>
#include <utility>

namespace NSCam {

class IGenericContainerManager {
  public:
    // The process-wide registry, or nullptr while it is unavailable (see setAvailable).
    static IGenericContainerManager* get();

    // The container registered for (key, type), made with `make` and registered when absent.
    std::shared_ptr<void> findOrCreate(uint64_t key, std::type_index type,
                                       const std::function<std::shared_ptr<void>()>& make);

    // Containers registered and still alive.
    size_t liveContainers() const;

    // Host only: make get() return nullptr (false) or the registry (true, the default).
    static void setAvailable(bool available);

  private:
    mutable std::mutex mMutex;
    std::map<std::pair<uint64_t, std::type_index>, std::weak_ptr<void>> mContainers;  // mMutex
};

template <typename T>
class IGenericContainer : public std::enable_shared_from_this<IGenericContainer<T>> {
  public:
    // Read access: a snapshot of the latest item.
    class Reader {
      public:
        Reader(std::shared_ptr<IGenericContainer> c, std::string name)
            : mContainer(std::move(c)), mName(std::move(name)) {
            mContainer->attach(+1, 0);
        }
        ~Reader() { mContainer->attach(-1, 0); }
        Reader(Reader const&) = delete;
        Reader& operator=(Reader const&) = delete;

        bool latest(T& item) const { return mContainer->latest(item); }
        std::string const& name() const { return mName; }
        IGenericContainer& container() const { return *mContainer; }

      private:
        std::shared_ptr<IGenericContainer> mContainer;
        std::string mName;
    };

    // Write access: appends items, keeping the latest `capacity` of them.
    class Writer {
      public:
        Writer(std::shared_ptr<IGenericContainer> c, std::string name)
            : mContainer(std::move(c)), mName(std::move(name)) {
            mContainer->attach(0, +1);
        }
        ~Writer() { mContainer->attach(0, -1); }
        Writer(Writer const&) = delete;
        Writer& operator=(Writer const&) = delete;

        void push(T item) { mContainer->push(std::move(item)); }
        IGenericContainer& container() const { return *mContainer; }

      private:
        std::shared_ptr<IGenericContainer> mContainer;
        std::string mName;
    };

    template <typename User>
    static std::shared_ptr<User> makeUser(const char* userName, uint64_t key, int type) {
        IGenericContainerManager* manager = IGenericContainerManager::get();
        if (manager == nullptr) {
            return nullptr;
        }
        std::shared_ptr<void> erased =
            manager->findOrCreate(key, std::type_index(typeid(IGenericContainer<T>)), [&] {
                return std::shared_ptr<void>(std::make_shared<IGenericContainer<T>>(key, type));
            });
        auto container = std::static_pointer_cast<IGenericContainer<T>>(erased);
        return std::make_shared<User>(std::move(container), userName != nullptr ? userName : "");
    }

    IGenericContainer(uint64_t key, int type) : mKey(key), mType(type) {}

    uint64_t key() const { return mKey; }
    int type() const { return mType; }
    int readers() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mReaders;
    }
    int writers() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mWriters;
    }

  private:
    static constexpr size_t kCapacity = 16;

    void attach(int readers, int writers) {
        std::lock_guard<std::mutex> lock(mMutex);
        mReaders += readers;
        mWriters += writers;
    }
    void push(T item) {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mItems.size() >= kCapacity) {
            mItems.pop_front();
        }
        mItems.push_back(std::move(item));
    }
    bool latest(T& item) const {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mItems.empty()) {
            return false;
        }
        item = mItems.back();
        return true;
    }

    uint64_t const mKey;
    int const mType;
    mutable std::mutex mMutex;
    std::deque<T> mItems;  // guarded by mMutex
    int mReaders = 0;      // guarded by mMutex
    int mWriters = 0;      // guarded by mMutex
};

namespace v3 {
// Per-frame streaming data shared between the session's components; its contents belong to the
// producers and consumers of the container, not to the sync helper, which only attaches.
struct Customer_FOVA_Streaming_Data {
    int32_t frameNo = -1;
    int32_t masterId = -1;
    int64_t timestampNs = 0;
};
}  // namespace v3

}  // namespace NSCam
