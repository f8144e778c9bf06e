#include <NSCam/IGenericContainer.h>

#include <atomic>

namespace NSCam {

namespace {
std::atomic<bool> gAvailable{true};
}

IGenericContainerManager* IGenericContainerManager::get() {
    static IGenericContainerManager* instance = new IGenericContainerManager();
    return gAvailable.load(std::memory_order_acquire) ? instance : nullptr;
}

void IGenericContainerManager::setAvailable(bool available) {
    gAvailable.store(available, std::memory_order_release);
}

std::shared_ptr<void> IGenericContainerManager::findOrCreate(
    uint64_t key, std::type_index type, const std::function<std::shared_ptr<void>()>& make) {
    std::lock_guard<std::mutex> lock(mMutex);
    auto& slot = mContainers[std::make_pair(key, type)];
    std::shared_ptr<void> container = slot.lock();
    if (!container) {
        container = make();
        slot = container;
    }
    return container;
}

size_t IGenericContainerManager::liveContainers() const {
    std::lock_guard<std::mutex> lock(mMutex);
    size_t live = 0;
    for (auto const& entry : mContainers) {
        live += entry.second.expired() ? 0 : 1;
    }
    return live;
}

}  // namespace NSCam
