#include "shared/ExtensionUtilities.h"

#include "platform/FileCoordinator.h"
#include "shared/ConstVars.h"
#include "support/LockHolder.h"
#include "support/LogCapture.h"
#include "support/ScopedEnvironment.h"
#include "support/TempContainer.h"

#include <QDir>
#include <QFile>
#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace corvina;
using namespace std::chrono_literals;
using corvina::test::LockHolder;
using corvina::test::LogCapture;
using corvina::test::ScopedEnvironment;
using corvina::test::TempContainer;

namespace {

QString folderFor(const char* identifier) {
    ScopedEnvironment bundle("CORVINA_BUNDLE_IDENTIFIER", QByteArray(identifier));
    return ExtensionUtilities::GroupFolderName();
}

} // namespace

TEST(ExtensionUtilities, BetaBuildsUseTheBetaFolder) {
    EXPECT_EQ(folderFor("org.corvina.mail.beta.today"), QStringLiteral("SharedDataBeta"));
    // one beta test only: the numbered beta builds share that folder
    EXPECT_EQ(folderFor("org.corvina.mail.beta8.today"), QStringLiteral("SharedDataBeta"));
    EXPECT_EQ(folderFor("org.corvina.mail.beta10.today"), QStringLiteral("SharedDataBeta"));
    EXPECT_EQ(folderFor("org.corvina.mail.beta"), QStringLiteral("SharedDataBeta"));
}

TEST(ExtensionUtilities, OtherBuildsUseTheReleaseFolder) {
    EXPECT_EQ(folderFor("org.corvina.mail.today"), QStringLiteral("SharedData"));
    EXPECT_EQ(folderFor("org.corvina.mail2.today"), QStringLiteral("SharedData"));
    EXPECT_EQ(folderFor("org.corvina.mail.pro.today"), QStringLiteral("SharedData"));
    // a prefix test, case-sensitive, not a containment test
    EXPECT_EQ(folderFor("org.corvina.mail.Beta.today"), QStringLiteral("SharedData"));
    EXPECT_EQ(folderFor("x.org.corvina.mail.beta.today"), QStringLiteral("SharedData"));
    EXPECT_EQ(folderFor("org.corvina.mailbeta"), QStringLiteral("SharedData"));
}

TEST(ExtensionUtilities, DataPathIsTheContainerAndTheFolderName) {
    ScopedEnvironment container("CORVINA_GROUP_CONTAINER", QByteArray("/shared/box"));
    {
        ScopedEnvironment bundle("CORVINA_BUNDLE_IDENTIFIER", QByteArray("org.corvina.mail.today"));
        EXPECT_EQ(ExtensionUtilities::GroupPath()->toLocalFile(), QStringLiteral("/shared/box"));
        EXPECT_EQ(ExtensionUtilities::GroupDataPath()->toLocalFile(),
                  QStringLiteral("/shared/box/SharedData"));
    }
    ScopedEnvironment bundle("CORVINA_BUNDLE_IDENTIFIER", QByteArray("org.corvina.mail.beta.today"));
    EXPECT_EQ(ExtensionUtilities::GroupDataPath()->toLocalFile(),
              QStringLiteral("/shared/box/SharedDataBeta"));
}

TEST(ExtensionUtilities, WithoutContainerThereIsNoDataPathAndNoAccounts) {
    ScopedEnvironment container("CORVINA_GROUP_CONTAINER", QByteArray(""));
    LogCapture capture;
    EXPECT_FALSE(ExtensionUtilities::GroupPath());
    EXPECT_FALSE(ExtensionUtilities::GroupDataPath());
    EXPECT_TRUE(ExtensionUtilities::Accounts().isEmpty());
    const auto contacts = ExtensionUtilities::AddressesAndGroups();
    EXPECT_TRUE(contacts.addresses.isEmpty());
    EXPECT_TRUE(contacts.groups.isEmpty());
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(ExtensionUtilities, NoAccountsFileGivesNoAccountsSilently) {
    TempContainer container;
    LogCapture capture;
    EXPECT_TRUE(ExtensionUtilities::Accounts().isEmpty());
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(ExtensionUtilities, AccountsAreReadInFileOrderFromBothForms) {
    for (auto format : {PropertyList::Format::Xml, PropertyList::Format::Binary}) {
        TempContainer container;
        container.writeAccounts(
            {TempContainer::account("a@example.org"), TempContainer::account("b@example.org", false)},
            format);
        const auto accounts = ExtensionUtilities::Accounts();
        ASSERT_EQ(accounts.size(), 2);
        EXPECT_EQ(accounts[0]->mail(), QStringLiteral("a@example.org"));
        EXPECT_TRUE(accounts[0]->enabled());
        EXPECT_EQ(accounts[1]->mail(), QStringLiteral("b@example.org"));
        EXPECT_FALSE(accounts[1]->enabled());
    }
}

TEST(ExtensionUtilities, AnAccountsFileThatIsNoListGivesNoAccountsAndSaysSo) {
    TempContainer container;
    LogCapture capture;
    container.writePlist(ConstVars::accountsFile, QVariantMap{{"mail", "a@example.org"}});
    QString refusal;
    EXPECT_TRUE(ExtensionUtilities::Accounts(&refusal).isEmpty());
    EXPECT_EQ(refusal, QStringLiteral("no array in return"));
    container.writeBytes(ConstVars::accountsFile, "not a property list");
    refusal.clear();
    EXPECT_TRUE(ExtensionUtilities::Accounts(&refusal).isEmpty());
    EXPECT_FALSE(refusal.isEmpty());
    EXPECT_EQ(capture.lines(), (QStringList{QStringLiteral("Accounts error deserialize no array in return"),
                                            QStringLiteral("Accounts error deserialize ") + refusal}));
}

TEST(ExtensionUtilities, AnAccountsFileOverTheObjectBoundIsRefusedAndSaysSo) {
    TempContainer container;
    // One object past the bound: the array and 131 072 empty dictionaries.
    QByteArray xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><array>";
    for (int i = 0; i < 131072; ++i)
        xml += "<dict/>";
    xml += "</array></plist>\n";
    container.writeBytes(ConstVars::accountsFile, xml);
    LogCapture capture;
    QString refusal;
    EXPECT_TRUE(ExtensionUtilities::Accounts(&refusal).isEmpty());
    EXPECT_EQ(refusal, QStringLiteral("XML property list holds more than 131072 objects"));
    EXPECT_EQ(capture.lines(),
              QStringList{QStringLiteral(
                  "Accounts error deserialize XML property list holds more than 131072 objects")});
    // Without a place for the reason, the line is logged all the same.
    EXPECT_TRUE(ExtensionUtilities::Accounts().isEmpty());
    EXPECT_EQ(capture.lines().size(), 2);
}

TEST(ExtensionUtilities, AnAccountsFileReadOrMissingIsNoRefusal) {
    TempContainer container;
    LogCapture capture;
    QString refusal = QStringLiteral("untouched");
    EXPECT_TRUE(ExtensionUtilities::Accounts(&refusal).isEmpty()); // missing
    EXPECT_EQ(refusal, QStringLiteral("untouched"));
    container.writeAccounts({TempContainer::account("a@example.org")});
    EXPECT_EQ(ExtensionUtilities::Accounts(&refusal).size(), 1);
    EXPECT_EQ(refusal, QStringLiteral("untouched"));
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(ExtensionUtilities, ABadAccountElementBetweenGoodOnesKeepsTheOrder) {
    TempContainer container;
    container.writeAccounts({TempContainer::account("a@example.org"), QStringLiteral("not a dictionary"),
                             TempContainer::account("c@example.org")});
    LogCapture capture;
    const auto accounts = ExtensionUtilities::Accounts();
    // the account builder never refuses: the bad element becomes an account with nothing set
    ASSERT_EQ(accounts.size(), 3);
    EXPECT_EQ(accounts[0]->mail(), QStringLiteral("a@example.org"));
    EXPECT_TRUE(accounts[1]->mail().isNull());
    EXPECT_FALSE(accounts[1]->enabled());
    EXPECT_EQ(accounts[2]->mail(), QStringLiteral("c@example.org"));
    EXPECT_EQ(
        capture.lines(),
        QStringList{"ExtensionAccount initWithDictonary objectForKey: unsupported value of type string"});
}

TEST(ExtensionUtilities, AnAccountsLockHeldTooLongIsLoggedAndGivesNoAccounts) {
    TempContainer container;
    container.writeAccounts({TempContainer::account("a@example.org")});
    LockHolder holder(container.data() + "/" + ConstVars::accountsFile);
    LogCapture capture;
    EXPECT_TRUE(ExtensionUtilities::Accounts().isEmpty());
    EXPECT_EQ(capture.lines(),
              QStringList{"[***ERROR***] NSFileCoordinator Accounts " + container.data() +
                          "/.Accounts.plist.lock is locked by another process; gave up after 150 ms"});
}

TEST(ExtensionUtilities, AMissingContactsFolderIsCreatedAndBothListsAreEmpty) {
    TempContainer container;
    LogCapture capture;
    const auto contacts = ExtensionUtilities::AddressesAndGroups();
    EXPECT_TRUE(QFileInfo(container.data() + "/" + ConstVars::contactsFolder).isDir());
    EXPECT_TRUE(contacts.addresses.isEmpty());
    EXPECT_TRUE(contacts.groups.isEmpty());
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(ExtensionUtilities, AddressesAreReadButGroupsStayEmpty) {
    TempContainer container;
    container.writePlist(ConstVars::contactsFolder + "/Addresses.plist",
                         QVariantList{QVariantMap{{"mail", "a@example.org"}, {"firstName", "Ada"}},
                                      QVariantMap{{"mail", "b@example.org"}}},
                         PropertyList::Format::Binary);
    container.writePlist(
        ConstVars::contactsFolder + "/Groups.plist",
        QVariantList{QVariantMap{{"idx", "g1"},
                                 {"name", "Friends"},
                                 {"addresses", QVariantList{QVariantMap{{"mail", "a@example.org"}}}}}});
    const auto contacts = ExtensionUtilities::AddressesAndGroups();
    ASSERT_EQ(contacts.addresses.size(), 2);
    EXPECT_EQ(contacts.addresses[0]->prettyprint(), QStringLiteral("Ada <a@example.org>"));
    EXPECT_EQ(contacts.addresses[1]->mail(), QStringLiteral("b@example.org"));
    // deliberately empty although Groups.plist holds a valid group
    EXPECT_TRUE(contacts.groups.isEmpty());
}

TEST(ExtensionUtilities, APlainFileNamedContactsGivesEmptyListsSilently) {
    TempContainer container;
    container.writeBytes(ConstVars::contactsFolder, "just a file");
    LogCapture capture;
    const auto contacts = ExtensionUtilities::AddressesAndGroups();
    EXPECT_TRUE(contacts.addresses.isEmpty());
    EXPECT_TRUE(contacts.groups.isEmpty());
    EXPECT_TRUE(capture.lines().isEmpty());
    EXPECT_TRUE(QFileInfo(container.data() + "/" + ConstVars::contactsFolder).isFile());
}

TEST(ExtensionUtilities, AContactsFolderThatCannotBeMadeIsLogged) {
    TempContainer container;
    // a dangling link: nothing "exists" there, yet nothing can be made there either
    ASSERT_TRUE(
        QFile::link(container.root() + "/nowhere", container.data() + "/" + ConstVars::contactsFolder));
    LogCapture capture;
    const auto contacts = ExtensionUtilities::AddressesAndGroups();
    EXPECT_TRUE(contacts.addresses.isEmpty());
    ASSERT_EQ(capture.lines().size(), 1);
    EXPECT_TRUE(capture.lines().first().startsWith("[***ERROR***] AddressesAndGroups cannot create " +
                                                   container.data() + "/Contacts: "))
        << capture.lines().first().toStdString();
}

TEST(ExtensionUtilities, AContactsLockHeldTooLongIsLogged) {
    TempContainer container;
    container.writePlist(ConstVars::contactsFolder + "/Addresses.plist",
                         QVariantList{QVariantMap{{"mail", "a@example.org"}}});
    LockHolder holder(container.data() + "/" + ConstVars::contactsFolder);
    LogCapture capture;
    const auto contacts = ExtensionUtilities::AddressesAndGroups();
    EXPECT_TRUE(contacts.addresses.isEmpty());
    EXPECT_EQ(capture.lines(),
              QStringList{"[***ERROR***] NSFileCoordinator AddressesAndGroups " + container.data() +
                          "/.Contacts.lock is locked by another process; gave up after 150 ms"});
}

namespace {

// Runs `read` while `fifo` exists; should it block, a writer opens and closes the FIFO so that the
// read ends and the test fails instead of hanging.
template <typename Read> auto withoutBlockingOn(const QString& fifo, Read read) -> decltype(read()) {
    auto future = std::async(std::launch::async, read);
    if (future.wait_for(5s) != std::future_status::ready) {
        const int writer = ::open(QFile::encodeName(fifo).constData(), O_WRONLY | O_NONBLOCK);
        ::close(writer);
        ADD_FAILURE() << "reading blocked on the FIFO " << fifo.toStdString();
    }
    return future.get();
}

} // namespace

TEST(ExtensionUtilities, AnAccountsFileThatIsAFifoGivesNoAccountsAtOnce) {
    TempContainer container;
    const QString fifo = container.data() + "/" + ConstVars::accountsFile;
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    LogCapture capture;
    const auto accounts = withoutBlockingOn(fifo, [] { return ExtensionUtilities::Accounts(); });
    EXPECT_TRUE(accounts.isEmpty());
    EXPECT_TRUE(capture.lines().isEmpty());
}

TEST(ExtensionUtilities, ContactListsThatAreFifosGiveEmptyListsAtOnce) {
    TempContainer container;
    ASSERT_TRUE(QDir().mkpath(container.data() + "/" + ConstVars::contactsFolder));
    const QString addresses = container.data() + "/" + ConstVars::contactsFolder + "/Addresses.plist";
    ASSERT_EQ(::mkfifo(QFile::encodeName(addresses).constData(), 0600), 0);
    const QString groups = container.data() + "/" + ConstVars::contactsFolder + "/Groups.plist";
    ASSERT_EQ(::mkfifo(QFile::encodeName(groups).constData(), 0600), 0);
    LogCapture capture;
    const auto result = withoutBlockingOn(addresses, [] { return ExtensionUtilities::AddressesAndGroups(); });
    EXPECT_TRUE(result.addresses.isEmpty());
    EXPECT_TRUE(result.groups.isEmpty());
    EXPECT_TRUE(capture.lines().isEmpty());
}
