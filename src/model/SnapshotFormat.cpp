#include "SnapshotFormat.h"

#include "platform/PlistValue.h"

namespace corvina {

bool SnapshotFormat::isOfKind(const QVariant& folderStid, ListKind kind) {
    const QVariant value = PlistValue::numberValue(folderStid);
    return value.isValid() && value.toDouble() == static_cast<double>(number(kind));
}

} // namespace corvina
