#pragma once

#include <QString>

// A text from the server as it may reach a terminal: control characters removed (line breaks kept,
// so an escape sequence cannot clear the screen or retitle the window) and cut after a length cap.
QString ShownText(const QString& text);
