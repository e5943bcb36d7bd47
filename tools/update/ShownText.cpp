#include "ShownText.h"

#include "core/DocumentCaps.h"

QString ShownText(const QString& text)
{
    const int cap = Morvantix::DocumentCaps::ShownTextChars;
    QString shown;
    shown.reserve(qMin(text.size(), cap));
    for (const QChar c : text) {
        if (shown.size() >= cap) {
            shown += QStringLiteral("...");
            break;
        }
        // Other_Control holds C0, DEL and C1 (0x9B starts an escape sequence on its own); format
        // characters can reorder what the line shows.
        const QChar::Category category = c.category();
        if (c != QLatin1Char('\n') && (category == QChar::Other_Control || category == QChar::Other_Format))
            continue;
        shown += c;
    }
    return shown;
}
