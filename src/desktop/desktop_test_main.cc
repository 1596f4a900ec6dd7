// Runs every registered QTest class of the window; the exit code counts the
// classes that failed. Arguments go to each (e.g. -v2, a test function name).
#include <QApplication>
#include <QTest>

#include "desktop/desktop_test_main.h"

namespace klipora::desktop {

std::vector<TestFactory>& registeredTests() {
  static std::vector<TestFactory> tests;
  return tests;
}

}  // namespace klipora::desktop

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  QApplication::setAttribute(Qt::AA_Use96Dpi, true);
  int failedClasses = 0;
  for (const auto& make : klipora::desktop::registeredTests()) {
    auto test = make();
    if (QTest::qExec(test.get(), argc, argv) != 0) ++failedClasses;
  }
  return failedClasses;
}
