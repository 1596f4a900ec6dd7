// The window's QTest classes run in one program (one link, one
// QApplication): each test file registers its class with
// KLIPORA_DESKTOP_TEST(Class), and the program runs them all in turn.
#pragma once

#include <QObject>
#include <functional>
#include <memory>
#include <vector>

namespace klipora::desktop {

using TestFactory = std::function<std::unique_ptr<QObject>()>;
std::vector<TestFactory>& registeredTests();

struct TestRegistration {
  explicit TestRegistration(TestFactory factory) {
    registeredTests().push_back(std::move(factory));
  }
};

}  // namespace klipora::desktop

#define KLIPORA_DESKTOP_TEST(Class)                                       \
  static ::klipora::desktop::TestRegistration Class##Registration([] {  \
    return std::unique_ptr<QObject>(new Class);                         \
  })
