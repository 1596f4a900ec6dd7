// NotificationCenter: named in-process notifications. Observers always run on
// the main loop (posted through the main Executor), whichever thread posts.
//
// Thread rules: addObserver, removeObserver and post are safe from any thread.
// An observer removed before its posted call runs is not called.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/clock.h"

namespace klipora {

namespace notifications {
inline constexpr char kPauseScheduleDidChange[] = "com.klipora.watcher.pauseScheduleDidChange";
inline constexpr char kCustomCategoriesDidChange[] = "com.klipora.customCategoriesDidChange";
inline constexpr char kUserCategoryDidChange[] = "com.klipora.userCategoryDidChange";
}  // namespace notifications

class NotificationCenter {
 public:
  using ObserverId = uint64_t;

  explicit NotificationCenter(Executor& mainLoop);
  NotificationCenter(const NotificationCenter&) = delete;
  NotificationCenter& operator=(const NotificationCenter&) = delete;

  ObserverId addObserver(const std::string& name, std::function<void()> observer);
  void removeObserver(ObserverId id);
  void post(const std::string& name);

 private:
  struct Entry {
    std::string name;
    std::shared_ptr<std::function<void()>> observer;
  };
  struct Shared {
    std::mutex mutex;
    std::map<ObserverId, Entry> observers;
  };

  Executor& mainLoop_;
  std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
  ObserverId nextId_ = 1;
};

}  // namespace klipora
