#pragma once

#include <QString>
#include <string>

namespace corvina::test {

// Everything under `folder`, recursively and without following links: each entry's relative path
// with its kind and content (a file's bytes, a link's target), hidden entries included, as one text
// so that a test comparing two of them shows what changed.
std::string describeTree(const QString& folder);

} // namespace corvina::test
