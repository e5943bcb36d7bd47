#pragma once

#include <QObject>

#include <functional>
#include <vector>

// Lets one area executable hold several QtTest classes: each test source registers its class, and
// the shared main runs them all, in registration order, each with a fresh object.
namespace TestRegistry {

using Factory = std::function<QObject*()>;
std::vector<Factory>& factories();

} // namespace TestRegistry

#define CORE_TEST_CLASS(Class)                                                                               \
    [[maybe_unused]] static const bool s_registered_##Class                                                  \
        = (TestRegistry::factories().push_back([]() -> QObject* { return new Class; }), true);
