#pragma once

namespace corvina {

// What a widget update comes to, as the host hears it (a plain number): 0 new data, 1 no data,
// 2 failed. The controller reports the first two; the snapshot loader keeps all three for
// inspection.
struct UpdateResult {
    enum Value { NewData = 0, NoData = 1, Failed = 2 };
};

} // namespace corvina
