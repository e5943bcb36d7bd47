#include "Outcome.h"

namespace Publish {

QString ExitCodeTable()
{
    return QStringLiteral(
        "Exit codes:\n"
        "  0  published\n"
        "  1  wrong command line\n"
        "  2  bad input: a folder that is no version, a version twice, a link, an unreadable\n"
        "     file, a file name the launcher cannot take, an info template that is no JSON\n"
        "  3  7-Zip not found\n"
        "  4  7-Zip failed\n"
        "  6  OUTPUT could not be written (full disk, no permission, not a channel root)\n");
}

} // namespace Publish
