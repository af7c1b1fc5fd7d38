#include "credentials.h"
#include "pgcluster.h"
#include "store.h"

#include <QTemporaryDir>
#include <algorithm>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

using namespace kavel::server;
using namespace kavel::test;

namespace {

// Both kinds of store, through the same interface, must behave alike.
class StoreBehaviour : public ::testing::TestWithParam<const char *>
{
public:
    static void SetUpTestSuite() { cluster = std::make_unique<PgCluster>(); }
    static void TearDownTestSuite() { cluster.reset(); }

protected:
    void SetUp() override
    {
        credentials::initialise();
        std::string location;
        if (std::string(GetParam()) == "sqlite") {
            location = dir.filePath(QStringLiteral("k.db")).toStdString();
        } else {
            if (cluster->missing())
                GTEST_SKIP() << cluster->error().toStdString();
            ASSERT_TRUE(cluster->error().isEmpty()) << cluster->error().toStdString();
            location = cluster->newDatabase();
        }
        store = openStore(location);
    }

    static inline std::unique_ptr<PgCluster> cluster;
    QTemporaryDir dir;
    std::unique_ptr<Store> store;
};

} // namespace

TEST_P(StoreBehaviour, TokensAndCodesExpireAndCodesAreSpentOnce)
{
    Store &db = *store;
    const UserRecord user = db.addUser("a@b.c", "138", std::nullopt, "hash");
    EXPECT_THROW(db.addUser("a@b.c", std::nullopt, std::nullopt, "hash"), StoreError);
    EXPECT_EQ(db.findUserByAccount("138")->id, user.id);
    EXPECT_EQ(db.findUserByAccount("a@b.c")->id, user.id);
    EXPECT_FALSE(db.findUserByAccount("nobody"));

    db.storeToken("live", user.id, "access", 1000);
    EXPECT_EQ(db.userForToken("live", "access", 999)->email, "a@b.c");
    EXPECT_FALSE(db.userForToken("live", "access", 1000)) << "expired";
    EXPECT_FALSE(db.userForToken("live", "refresh", 999)) << "wrong kind";

    // A code is spent once; it does not survive its expiry, too many guesses or a newer one.
    const auto tries = [&db](std::initializer_list<const char *> codes, std::int64_t at) {
        std::string accepted;
        for (const char *code : codes)
            accepted += db.consumeSmsCode("138", code, at, 3) ? "y" : "n";
        return accepted;
    };
    db.storeSmsCode("138", "right", 100, 400);
    EXPECT_EQ(tries({"wrong", "right", "right"}, 200), "nyn");
    db.storeSmsCode("138", "right", 100, 400);
    EXPECT_EQ(tries({"right"}, 400), "n") << "expired";
    db.storeSmsCode("138", "right", 100, 400);
    EXPECT_EQ(tries({"guess", "guess", "guess", "right"}, 200), "nnnn") << "too many guesses";
    db.storeSmsCode("138", "first", 100, 400);
    db.storeSmsCode("138", "second", 150, 450);
    EXPECT_EQ(db.lastSmsCodeSentAt("138"), 150);
    EXPECT_EQ(tries({"first", "second"}, 200), "ny") << "replaced";
}

TEST_P(StoreBehaviour, LeasesDecideWhoMayFinishATask)
{
    Store &db = *store;
    const std::string user = db.addUser("q@b.c", std::nullopt, std::nullopt, "hash").id;
    db.createTask("t1", user, "t1.wav", "en", 1);
    db.createTask("t2", user, "t2.wav", "zh-CN", 2);

    // Oldest first, one worker each, nothing left for a third.
    EXPECT_EQ(db.claimTask("a", 1000, 100, 3)->audioFile, "t1.wav");
    const auto second = db.claimTask("b", 1000, 100, 3);
    EXPECT_EQ(second->id, "t2");
    EXPECT_EQ(second->language, "zh-CN") << "the recogniser is told the recording's language";
    EXPECT_FALSE(db.claimTask("c", 1000, 100, 3));

    // A renews; b goes quiet and its task passes to c once the lease has run out.
    EXPECT_FALSE(db.renewLease("t1", "b", 2000));
    EXPECT_TRUE(db.renewLease("t1", "a", 2000));
    EXPECT_FALSE(db.claimTask("c", 1100, 100, 3)) << "a lease lasts until its end";
    const auto retaken = db.claimTask("c", 1500, 100, 3);
    EXPECT_EQ(retaken->id, "t2");
    EXPECT_EQ(retaken->language, "zh-CN");
    EXPECT_FALSE(db.completeTask("t2", "b", "[1]")) << "b lost its lease";
    EXPECT_TRUE(db.completeTask("t2", "c", "[2]"));
    EXPECT_FALSE(db.completeTask("t2", "c", "[3]")) << "a task completes once";
    EXPECT_EQ(db.task("t2")->resultJson, "[2]");

    EXPECT_TRUE(db.failTask("t1", "a", "no speech"));
    EXPECT_EQ(db.task("t1")->status, "failed");
    EXPECT_EQ(db.task("t1")->errorMessage, "no speech");

    // A stopping worker gives its task back whole.
    db.createTask("t3", user, "t3.wav", "en", 3);
    EXPECT_EQ(db.claimTask("a", 3000, 100, 1)->id, "t3");
    db.releaseTask("t3", "a");
    EXPECT_EQ(db.task("t3")->status, "pending");
    EXPECT_EQ(db.claimTask("b", 3000, 100, 1)->id, "t3") << "a release is not a claim used up";

    // A task whose workers keep dying fails after the last allowed claim.
    EXPECT_FALSE(db.claimTask("c", 3200, 100, 1));
    EXPECT_EQ(db.task("t3")->status, "failed");
    EXPECT_TRUE(db.task("t3")->errorMessage->find("interrupted") != std::string::npos);

    // Only a user's unfinished tasks count against their uploads, claimed or not.
    db.createTask("t4", db.addUser("r@b.c", std::nullopt, std::nullopt, "hash").id, "t4.wav", "en",
                  4);
    db.createTask("t5", user, "t5.wav", "en", 5);
    db.createTask("t6", user, "t6.wav", "en", 6);
    EXPECT_EQ(db.claimTask("a", 4000, 100, 1)->id, "t4");
    EXPECT_EQ(db.claimTask("a", 4000, 100, 1)->id, "t5");
    auto waiting = db.waitingUploads(user);
    std::sort(waiting.begin(), waiting.end());
    EXPECT_EQ(waiting, (std::vector<std::string> {"t5.wav", "t6.wav"}));
}

INSTANTIATE_TEST_SUITE_P(Backends, StoreBehaviour, ::testing::Values("sqlite", "postgresql"),
                         [](const auto &param) { return std::string(param.param); });

TEST(SqliteStore, FilesAreTheOwnersAloneAndOldFilesAreAdopted)
{
    QTemporaryDir dir;
    const std::string path = dir.filePath(QStringLiteral("old.db")).toStdString();
    // A file as servers wrote it before the schema had versions, with a task in flight.
    sqlite3 *old = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &old), SQLITE_OK);
    ASSERT_EQ(
        sqlite3_exec(old,
                     "CREATE TABLE users (id TEXT PRIMARY KEY, email TEXT UNIQUE, phone TEXT "
                     "UNIQUE, nickname TEXT, password_hash TEXT NOT NULL, created_at TEXT NOT "
                     "NULL);"
                     "CREATE TABLE tasks (id TEXT PRIMARY KEY, user_id TEXT NOT NULL, status "
                     "TEXT NOT NULL, result TEXT, error_message TEXT, created_at INTEGER NOT "
                     "NULL);"
                     "INSERT INTO users VALUES ('u', 'o@b.c', NULL, NULL, 'h', 'then');"
                     "INSERT INTO tasks VALUES ('t', 'u', 'processing', NULL, NULL, 1);",
                     nullptr, nullptr, nullptr),
        SQLITE_OK);
    sqlite3_close(old);

    auto store = openStore(path);
    EXPECT_EQ(store->schemaVersion(), 3);
    EXPECT_EQ(store->findUserByAccount("o@b.c")->id, "u");
    EXPECT_EQ(store->task("t")->status, "failed") << "its audio was never kept";
    store.reset();
    EXPECT_EQ(openStore(path)->schemaVersion(), 3) << "reopening migrates nothing again";

    const std::string fresh = dir.filePath(QStringLiteral("new.db")).toStdString();
    store = openStore(fresh);
    store->addUser("p@b.c", std::nullopt, std::nullopt, "hash");
    for (const std::string &file : {fresh, fresh + "-wal"}) {
        struct stat info = {};
        ASSERT_EQ(::stat(file.c_str(), &info), 0) << file;
        EXPECT_EQ(info.st_mode & 0777, 0600u) << file;
    }
    EXPECT_THROW(openStore(dir.filePath(QStringLiteral("no/such/folder/k.db")).toStdString()),
                 StoreError);
}
