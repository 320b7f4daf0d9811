#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "tests/drivers/OwnServer.h"
#include "tests/drivers/PaperModel.h"
#include "tests/drivers/PlainMariadb.h"
#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/Raises.h"

namespace Kes::testing {

class MariadbServerTest : public ::testing::Test {
protected:
    void open(Model& model) {
        model.open("mariadb", server->says("source").c_str(), server->says("password").c_str(),
                   "kes", "");
    }

    PlainMariadb admin() {
        return PlainMariadb(server->says("source"), "kes", server->says("password"));
    }

    static bool says(const std::string& message, const std::string& words) {
        return message.find(words) != std::string::npos;
    }

    std::unique_ptr<OwnServer> server;
};

TEST_F(MariadbServerTest, WithALargerPacketTakesLargerObjects) {
    server = std::make_unique<OwnServer>("mariadb", "KES_MARIADB_OPTIONS=max-allowed-packet=128M");
    server->start();
    PaperModel model;
    open(model);
    model.startTransaction();
    const Pointer<Paper> paper(model.newPaper("small"));
    model.newPaper("beside it");
    paper->scans[3] = scanOf(100000000);
    model.commit();
    const Blob scan = paper->scans[3];

    // What one session writes, another with a smaller packet reads and changes.
    admin().run("SET GLOBAL max_allowed_packet = 16777216");
    PaperModel other;
    open(other);
    Selection small(other.paperClass);
    small.where(small["title"] == "small");
    ASSERT_TRUE(small.next());
    const Pointer<Paper> read(static_cast<Paper*>(small.value()));
    EXPECT_TRUE(scan == read->scans[3]);
    other.startTransaction();
    read->change();
    read->title = "large";
    other.commit();
    paper->refresh();

    EXPECT_STREQ("large", paper->title);
    EXPECT_TRUE(scan == paper->scans[3]);
}

// --- a server with TLS ---

class MariadbTlsTest : public MariadbServerTest {
protected:
    MariadbTlsTest() {
        std::filesystem::permissions(folder.path(""), std::filesystem::perms(0755));
        if (std::system(("openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=127.0.0.1 "
                         "-addext subjectAltName=IP:127.0.0.1 -keyout '" +
                         key + "' -out '" + certificate + "' > /dev/null 2>&1; chmod 644 '" + key +
                         "'")
                            .c_str()) != 0)
            return;
        server = std::make_unique<OwnServer>(
            "mariadb", "KES_MARIADB_OPTIONS='ssl-cert=" + certificate + ";ssl-key=" + key + "'");
        server->start();
    }

    std::string openSays(const std::string& options) {
        PaperModel model;
        return messageRaisedBy([&] {
            model.open("mariadb", server->says("source").c_str(), server->says("password").c_str(),
                       "kes", options.c_str());
        });
    }

    TemporaryFolder folder;
    const std::string key = folder.path("key.pem");
    const std::string certificate = folder.path("certificate.pem");
};

TEST_F(MariadbTlsTest, IsTakenByItsCertificateOrByAny) {
    if (server == nullptr)
        GTEST_SKIP() << "no certificate without the program openssl";

    EXPECT_EQ("", openSays("tls=off"));
    EXPECT_EQ("", openSays("tls=on"));
    EXPECT_EQ("", openSays("tls=verify;tls_ca=" + certificate));
    EXPECT_TRUE(says(openSays("tls=verify"), "TLS"));
}

// --- no room ---

class MariadbFullTest : public MariadbServerTest {
protected:
    // Whatever the server lacks room in: a transaction is stored as a whole or
    // not at all, and the next one is when there is room.
    void expectFailureUntilThereIsRoom(const std::string& reason) {
        PaperModel model;
        open(model);
        const Blob page = scanOf(3000);
        admin().run("CREATE TABLE ballast (content LONGBLOB NOT NULL)");
        for (int i = 0; i < 4; ++i)
            admin().run("INSERT INTO ballast VALUES (REPEAT('x', 2000000))");
        model.startTransaction();
        const Pointer<Paper> paper(model.newPaper("first"));
        model.commit();
        model.startTransaction();
        paper->change();
        paper->title = "changed";
        for (int i = 0; i < 10000; ++i)
            model.newPaper("second")->scans[0] = page;

        const std::string said = messageRaisedBy([&] { model.commit(); });

        EXPECT_TRUE(says(said, "inserting the Paper object")) << said;
        EXPECT_TRUE(says(said, reason)) << said;
        EXPECT_TRUE(says(said, "make room on the server and try again")) << said;
        EXPECT_STREQ("first", paper->title);
        EXPECT_EQ(0U, paper->getVersion());
        EXPECT_EQ("first", admin().ask("SELECT MAX(title) FROM \"Paper\""));
        EXPECT_EQ("1", admin().ask("SELECT count(*) FROM \"Paper\""));

        admin().run("DROP TABLE ballast");
        model.startTransaction();
        paper->change();
        paper->title = "changed";
        for (int i = 0; i < 500; ++i)
            model.newPaper("third")->scans[0] = page;
        model.commit();

        EXPECT_EQ("501", admin().ask("SELECT count(*) FROM \"Paper\""));
        EXPECT_EQ("1", admin().ask("SELECT \"KesVersion\" FROM \"Paper\" WHERE title = 'changed'"));
    }
};

TEST_F(MariadbFullTest, StoresNothingInATablespaceThatIsFull) {
    server = std::make_unique<OwnServer>("mariadb",
                                         "KES_MARIADB_OPTIONS='innodb-file-per-table=0;"
                                         "innodb-data-file-path=ibdata1:12M:autoextend:max:40M'");
    server->start();

    expectFailureUntilThereIsRoom("is full");
}

TEST_F(MariadbFullTest, StoresNothingOnADiskThatIsFull) {
    if (!OwnServer::mayMount())
        GTEST_SKIP() << "only root may make a file system";
    server = std::make_unique<OwnServer>("mariadb", "KES_ENGINE_DURABLE=1");
    server->startOn(90, "node1/data");

    expectFailureUntilThereIsRoom("is full");
}

}  // namespace Kes::testing
