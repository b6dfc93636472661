#include "platform/linux/nat/MappingJournal.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "platform/linux/nat/RouterAnnouncements.h"
#include "platform/linux/nat/base/HttpResponseReader.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/TemporaryFolder.h"

namespace zelvo::test {

using namespace platform;

namespace {

class MappingJournalTest : public testing::Test {
  protected:
    static MappingRecord record(const std::string& protocol) {
        MappingRecord record;
        record.protocol = protocol;
        record.router = {0xc0a80101, 5351};
        record.localAddress = 0xc0a80114;
        record.internalPort = 5900;
        record.externalPorts = {23456, 30000};
        record.tcp = true;
        record.nonces.udp[11] = 0xfe;
        return record;
    }
    std::size_t files() const {
        const auto entries = std::filesystem::directory_iterator(folder.path());
        return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
    }

    RecordingLog log;
    TemporaryFolder folder;
};

}  // namespace

TEST_F(MappingJournalTest, NextStartTakesOverWhatTheDeadHaveLeftAndNothingElse) {
    auto crashed = std::make_unique<MappingJournal>(folder.path(), log);
    crashed->remove(crashed->add(record("NAT-PMP")));
    EXPECT_EQ(files(), 0u) << "nothing mapped, nothing kept";
    crashed->add(record("PCP"));
    crashed->abandon(crashed->add(record("UPnP")));
    crashed->add(record("UPnP"));
    EXPECT_EQ(crashed->records().size(), 2u) << "the same again, which nobody held";
    {
        const MappingJournal meanwhile(folder.path(), log);
        EXPECT_TRUE(meanwhile.records().empty()) << "its owner lives";
    }
    crashed.reset();
    folder.write("port-mappings.damaged", "PCP 1.2.3.4\n\n\xff\xfe" + record("PCP").text());
    folder.write("other", record("PCP").text() + "\n");

    folder.write("new-port-mappings.1", "cut");
    std::filesystem::last_write_time(
        folder / "new-port-mappings.1",
        std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    {
        // A full disk.
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit before{};
        getrlimit(RLIMIT_FSIZE, &before);
        const rlimit none{0, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &none);
        const MappingJournal unwritten(folder.path(), log);
        setrlimit(RLIMIT_FSIZE, &before);
        EXPECT_EQ(unwritten.records().size(), 2u);
        EXPECT_EQ(log.lines.size(), 1u);
        EXPECT_EQ(files(), 3u) << "what stood there still does";
    }

    MappingJournal next(folder.path(), log);
    ASSERT_EQ(next.records().size(), 2u);
    const MappingRecord& found = next.records().begin()->second;
    EXPECT_EQ(found.protocol, "PCP");
    EXPECT_EQ(found.router, (Ipv4Endpoint{0xc0a80101, 5351}));
    EXPECT_EQ(found.externalPorts, (std::vector<std::uint16_t>{23456, 30000}));
    EXPECT_EQ(found.nonces.udp[11], 0xfe);
    EXPECT_TRUE(found.tcp && !found.udp);
    EXPECT_EQ(files(), 2u) << "taken over into a file of its own, besides the stranger";

    // A folder that cannot be used is one line in the log.
    MappingJournal journal(folder / "other/zelvo", log);
    journal.remove(journal.add(record("PCP")));
    EXPECT_EQ(log.lines.size(), 2u);
}

TEST(HttpResponseReaderTest, ReadsEveryFormInEveryCut) {
    const std::string body = "<root>text</root>";
    const std::vector<std::string> forms{
        "HTTP/1.1 200 OK\r\nContent-Length: 17\r\n\r\n" + body + "ignored",
        "HTTP/1.0 200 OK\n\n" + body,
        "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nTRANSFER-ENCODING: Chunked\r\n\r\n"
        "5;x=y\r\n<root\r\nC\r\n>text</root>\r\n0\r\nTrailer: x\r\n\r\n"};
    for (const std::string& text : forms) {
        for (std::size_t piece = 1; piece <= text.size(); ++piece) {
            HttpResponseReader reader;
            for (std::size_t at = 0; at < text.size(); at += piece) {
                reader.feed(text.substr(at, piece));
            }
            ASSERT_EQ(reader.end(), HttpResponseReader::State::Done) << piece << " " << text;
            EXPECT_EQ(reader.response().status, 200);
            EXPECT_EQ(reader.response().body, body);
        }
    }
}

TEST(HttpResponseReaderTest, RefusesWhatIsEndlessOrBroken) {
    const auto failsOn = [](const std::string& start, const std::string& more, int rounds) {
        HttpResponseReader reader;
        reader.feed(start);
        for (int round = 0; round < rounds; ++round) {
            if (reader.feed(more) == HttpResponseReader::State::Failed) {
                return true;
            }
        }
        return reader.end() == HttpResponseReader::State::Failed;
    };
    const std::string head = "HTTP/1.1 200 OK\r\n";
    const std::string chunked = head + "Transfer-Encoding: chunked\r\n\r\n";
    const std::string block(1024, 'x');
    EXPECT_TRUE(failsOn("", block, 9)) << "a line without an end";
    EXPECT_TRUE(failsOn(head, "X: y\r\n", 2000)) << "headers without an end";
    EXPECT_TRUE(failsOn(head + "\r\n", block, 129)) << "a body without an end";
    EXPECT_TRUE(failsOn(chunked, "1\r\nx\r\n", 9999));
    EXPECT_TRUE(failsOn(head + "Content-Length: 5\r\n\r\nabc", "", 0)) << "cut off";
    for (const std::string& broken :
         {head + "Content-Length: 999999\r\n\r\n", head + "Content-Length: -1\r\n\r\n",
          chunked + "ffffffffffffffff\r\n", std::string("SSH-2.0-router\r\n")}) {
        EXPECT_EQ(HttpResponseReader().feed(broken), HttpResponseReader::State::Failed) << broken;
    }
}

TEST(RestartDetectorTest, TellsARestartFromARepetition) {
    RestartDetector detector;
    const auto says = [&detector](const std::string& kind, const std::string& extra) {
        const std::string text = "NOTIFY * HTTP/1.1\r\nNTS: ssdp:" + kind + "\r\n" + extra + "\r\n";
        const auto message = SsdpMessage::parse(Bytes(text.begin(), text.end()));
        return message && detector.isRestart(*message);
    };
    const std::string first = "Location: http://192.168.1.1/a\r\nBOOTID.UPNP.ORG: 1\r\n";
    EXPECT_TRUE(says("alive", first)) << "nobody knows how long it has been there";
    EXPECT_FALSE(says("alive", first));
    EXPECT_TRUE(says("alive", "Location: http://192.168.1.1/a\r\nBOOTID.UPNP.ORG: 2\r\n"));
    EXPECT_FALSE(says("byebye", ""));
    EXPECT_TRUE(says("alive", "Location: http://192.168.1.1/a\r\nBOOTID.UPNP.ORG: 2\r\n"));
    int restarts = 0;
    for (int number = 0; number < 1000; ++number) {
        restarts +=
            says("alive", "Location: http://192.168.1.1/" + std::to_string(number) + "\r\n");
    }
    EXPECT_LT(restarts, 20) << "not to be led to ask without end";
}

}  // namespace zelvo::test
