#pragma once

#include <gtest/gtest.h>

#include <csignal>

#include "tests/qt/WindowWorld.h"

namespace zelvo::test {

/// The keys for texts, with the images of the resources.
struct ResourceBundle : FakeBundle {
    std::string resourcePath() const override { return ZELVO_BUILD_FOLDER "/resources"; }
};

struct ResourceBundled {
    ResourceBundle ownBundle;
};

class WindowTest : public ::testing::Test, protected ResourceBundled, protected WindowWorld {
  protected:
    WindowTest() : WindowWorld(ownBundle) {}

    template <typename Control = QWidget>
    Control* find(const char* name) {
        auto* control = window.findChild<Control*>(name);
        EXPECT_TRUE(control) << name;
        return control;
    }
    std::string property(const char* control, const char* name) {
        return find<QObject>(control)->property(name).toString().toStdString();
    }

    /// Each a control, a property of it and what that is as text.
    struct Shown {
        const char* control;
        const char* name;
        const char* value;
    };
    void expect(std::initializer_list<Shown> list) {
        for (const auto& [control, name, value] : list)
            EXPECT_EQ(property(control, name), value) << control << '.' << name;
    }

    bool noSheet() {
        turn(loop);
        return !presentSheet();
    }
};

}  // namespace zelvo::test
