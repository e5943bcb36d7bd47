#pragma once

#include "Outcome.h"

#include <QString>
#include <QStringList>

namespace Publish {

// The remote information document, info.json.
namespace InfoDocument {

// The built-in template: every key the launcher reads, with empty texts and lists.
QString DefaultTemplate();

// info.json from an operator's template: read with the launcher's own reader and written back with
// its writer, so it holds every key the launcher reads, as the launcher will see it. ignoredKeys gets
// the template's keys the launcher does not read.
Outcome FromTemplate(const QString& templateText, QString& json, QStringList& ignoredKeys);

} // namespace InfoDocument

} // namespace Publish
