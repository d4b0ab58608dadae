#pragma once

#include <functional>

namespace corvina::test {

// Waits until `condition` holds, asking it every `pollMs`, for at most `timeoutMs`; whether it
// came to hold. A whole-program test waits so for another process: never a fixed time, and on a
// busy machine as long as the bound allows.
bool waitFor(const std::function<bool()>& condition, int timeoutMs, int pollMs = 20);

} // namespace corvina::test
