#pragma once

#include <QObject>

#include <functional>
#include <vector>

// Lets one area executable hold several QtTest classes: each test source registers its class, and
// the shared main runs them all, in registration order, each with a fresh object.
namespace TestRegistry {

using Factory = std::function<QObject*()>;

std::vector<Factory>& factories();

struct Registrar
{
    explicit Registrar(Factory factory) { factories().push_back(std::move(factory)); }
};

} // namespace TestRegistry

#define CORE_TEST_CLASS(Class)                                                                               \
    static TestRegistry::Registrar s_registrar_##Class([]() -> QObject* { return new Class; });
