#include "scenario.h"

// Each text below scenarios/ is a test of its own.
static const bool g_registered = [] {
    for (const auto& entry : fs::directory_iterator(ZEL_TEST_SCENARIOS))
        testing::RegisterTest("Scenarios", entry.path().stem().c_str(), nullptr, nullptr, __FILE__,
                              __LINE__, [path = entry.path().string()] {
                                  return static_cast<testing::Test*>(new Scenario(path));
                              });
    return true;
}();
