#include "platform/notification_center.h"

#include <vector>

namespace klipora {

NotificationCenter::NotificationCenter(Executor& mainLoop) : mainLoop_(mainLoop) {}

NotificationCenter::ObserverId NotificationCenter::addObserver(const std::string& name,
                                                               std::function<void()> observer) {
  std::lock_guard lock(shared_->mutex);
  ObserverId id = nextId_++;
  shared_->observers[id] =
      Entry{name, std::make_shared<std::function<void()>>(std::move(observer))};
  return id;
}

void NotificationCenter::removeObserver(ObserverId id) {
  std::lock_guard lock(shared_->mutex);
  shared_->observers.erase(id);
}

void NotificationCenter::post(const std::string& name) {
  std::vector<ObserverId> targets;
  {
    std::lock_guard lock(shared_->mutex);
    for (const auto& [id, entry] : shared_->observers) {
      if (entry.name == name) targets.push_back(id);
    }
  }
  for (ObserverId id : targets) {
    // Look the observer up again when the call runs, so removal wins.
    mainLoop_.post([weak = std::weak_ptr<Shared>(shared_), id] {
      auto shared = weak.lock();
      if (!shared) return;
      std::shared_ptr<std::function<void()>> observer;
      {
        std::lock_guard lock(shared->mutex);
        auto it = shared->observers.find(id);
        if (it == shared->observers.end()) return;
        observer = it->second.observer;
      }
      (*observer)();
    });
  }
}

}  // namespace klipora
