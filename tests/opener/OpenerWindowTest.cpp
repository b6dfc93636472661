#include "opener/window/OpenerWindow.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDropEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>

#include "platform/linux/property_lists/FileUserDefaults.h"
#include "tests/support/ManualLoop.h"
#include "tests/support/TemporaryFolder.h"

namespace zelvo::opener {
namespace {

constexpr const char* Link = "zelvo://AbC#AAAAAAAAAAAAAAAAAAAAAA";

class OpenerWindowTest : public testing::Test, public FactsSource {
  protected:
    void ask(const std::string& identifier, std::function<void(FactsAnswer)> done) override {
        asked = identifier;
        answer = std::move(done);
    }
    std::unique_ptr<HostLine> makeLine(const HostLine::Target& target, HostLine::Listener all) {
        name = target.name;
        host = std::move(all);
        return std::make_unique<HostLine>();
    }
    void find() {
        HostFacts facts;
        facts.name = "pc";
        answer(facts);
    }
    QString text(const char* label) { return window.findChild<QLabel*>(label)->text(); }
    void press(const char* button) { window.findChild<QPushButton*>(button)->click(); }
    void type(const char* field, const char* typed) {
        window.findChild<QLineEdit*>(field)->setText(typed);
    }
    std::string linkField() {
        return window.findChild<QLineEdit*>("linkField")->text().toStdString();
    }

    test::ManualLoop loop;
    test::RecordingLog log;
    test::TemporaryFolder folder;
    platform::FileUserDefaults settings{folder / "own", log};
    std::string asked, name;
    std::function<void(FactsAnswer)> answer;
    HostLine::Listener host;
    OpenerWindow window{{.session = {loop, *this,
                                     [this](const auto& target, auto listener) {
                                         return makeLine(target, std::move(listener));
                                     }},
                         .settings = settings,
                         .images = {}}};
};

TEST_F(OpenerWindowTest, AsksForWhatIsMissingAndForTheNameOnce) {
    window.open(" zelvo://AbC \n");
    EXPECT_TRUE(text("startSentence").startsWith("The end of this link is missing"));
    window.open(QString(" %1\n").arg(Link));
    EXPECT_EQ(text("startTitle"), "What is your name?");
    EXPECT_EQ(asked, "");
    type("nameField", "\u202E ");
    press("openButton");
    EXPECT_TRUE(text("startSentence").startsWith("Tell your name"));
    type("nameField", "  A\u030A  Ben\u202E ");
    press("openButton");
    EXPECT_EQ(asked, "AbC");
    find();
    EXPECT_EQ(name, "\u00C5 Ben");
    EXPECT_EQ(linkField(), "");
    struct stat status {};
    ASSERT_EQ(::stat((folder / "own/defaults.plist").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);

    // A class for URLs would write the identifier in small letters.
    window.ask();
    asked.clear();
    struct : QMimeData {
        QStringList formats() const override { return {"text/uri-list"}; }
        QVariant retrieveData(const QString&, QMetaType) const override {
            return QByteArray("# from a mail\r\n") + Link + "\r\n";
        }
    } data;
    QDropEvent drop({}, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    static_cast<QObject&>(window).event(&drop);
    EXPECT_EQ(asked, "AbC") << text("startSentence").toStdString() << linkField();
}

TEST_F(OpenerWindowTest, ShowsWhereItStandsAndWhatCameOfIt) {
    settings.setString("helperName", "Ben");
    window.open(Link);
    window.show();
    find();
    host.opened("012 345 678 901");
    host.stands({sealing::Standing::Place::Asked, 62});
    EXPECT_EQ(text("stateTitle"), "Waiting for a yes (1:02)");
    EXPECT_TRUE(text("stateSentence").contains("\u2068pc\u2069"));
    EXPECT_EQ(text("digits"), "012 345 678 901");
    EXPECT_TRUE(window.findChild<QLabel*>("addressWarning")->isVisible());
    EXPECT_EQ(window.exitStatus(), ExitStatus::GivenUp);

    const auto kept = host;
    kept.ended({LineEnd::Goodbye, sealing::Farewell::Refused});
    EXPECT_EQ(text("stateTitle"), "Refused");
    EXPECT_EQ(window.exitStatus(), ExitStatus::Refused);
    press("tryAgainButton");
    find();
    host.stands({sealing::Standing::Place::Watching, 0});
    window.close();
    EXPECT_EQ(window.exitStatus(), ExitStatus::Done);
}

}  // namespace
}  // namespace zelvo::opener
