#pragma once

#include <QString>

#include <functional>

namespace Publish {

// Where the parts of a publishing run report what they do. The publisher fills it with its own
// signals, so a part prints nothing and knows nothing of who listens.
struct ProgressSink
{
    std::function<void(const QString& what)> stepStarted;
    std::function<void(int percent)> percentChanged;
    std::function<void(const QString& text)> noticed;
};

} // namespace Publish
