#pragma once

#include "support/KeyringDaemon.h"

#include <gtest/gtest.h>

namespace corvina::test {

// Starts `keyring` on the process's private session bus (made here if it is not yet); a fatal
// failure of the test when either does not come up.
void startKeyring(KeyringDaemon& keyring);
// Stops `keyring` and has the bridge's SecretStore forget its connection to it: the next test's
// keyring is another daemon, and libsecret must not keep talking to this one.
void stopKeyring(KeyringDaemon& keyring);

// A test of `Base` with a real keyring daemon of its own (support/KeyringDaemon) on the private
// session bus. The keyring comes up before the base's set-up, since the base may start what asks it
// (the desktop's online accounts keep their passwords there) or read the session's environment
// once; it goes after the base's tear-down, since what the base ran (a bridge) may still ask it
// while it stops.
template <class Base = ::testing::Test> class KeyringTest : public Base {
protected:
    void SetUp() override {
        startKeyring(keyring);
        if (::testing::Test::HasFatalFailure())
            return;
        Base::SetUp();
    }
    void TearDown() override {
        Base::TearDown();
        stopKeyring(keyring);
    }

    KeyringDaemon keyring;
};

} // namespace corvina::test
