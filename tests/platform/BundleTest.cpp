#include "platform/Bundle.h"

#include <gtest/gtest.h>

using namespace corvina;

namespace {
struct EnvGuard {
    QByteArray saved = qgetenv("CORVINA_BUNDLE_IDENTIFIER");
    bool had = qEnvironmentVariableIsSet("CORVINA_BUNDLE_IDENTIFIER");
    ~EnvGuard() {
        if (had) {
            qputenv("CORVINA_BUNDLE_IDENTIFIER", saved);
        } else {
            qunsetenv("CORVINA_BUNDLE_IDENTIFIER");
        }
    }
};
} // namespace

TEST(Bundle, DefaultsToTheCompiledIdentifier) {
    EnvGuard guard;
    qunsetenv("CORVINA_BUNDLE_IDENTIFIER");
    EXPECT_EQ(Bundle::identifier(), QStringLiteral("org.corvina.mail.today"));
    EXPECT_EQ(Bundle::compiledIdentifier(), QStringLiteral("org.corvina.mail.today"));
}

TEST(Bundle, TheEnvironmentOverridesIt) {
    EnvGuard guard;
    qputenv("CORVINA_BUNDLE_IDENTIFIER", "org.corvina.mail.beta8.today");
    EXPECT_EQ(Bundle::identifier(), QStringLiteral("org.corvina.mail.beta8.today"));
}

TEST(Bundle, AnEmptyOverrideCountsAsUnset) {
    EnvGuard guard;
    qputenv("CORVINA_BUNDLE_IDENTIFIER", "");
    EXPECT_EQ(Bundle::identifier(), QStringLiteral("org.corvina.mail.today"));
}
