// The gallery shows every widget: nothing is cut off, and all of it works by keyboard.
#include "tests/support/UIFixture.h"

#include "ui/UIControl.h"
#include "ui/UIGallery.h"

#include <set>

namespace {

class Gallery : public UIFixture, public testing::WithParamInterface<UIGalleryLanguage> {
protected:
    Gallery() : m_application(GetParam()) {
        m_application.ProcessMessage(CXMessage("open-application"));
        Settle();
    }
    std::string Focused() {
        UIControl* focus = m_service.GetFrontWindow()->GetFocus();
        return focus != nullptr ? std::string(focus->GetName().View()) : std::string();
    }
    UIGalleryApplication m_application;
};

TEST_P(Gallery, IsSoundToLookAt) {
    EXPECT_STREQ(m_user.FindFaults().GetData(), "");
    for (const char* button : {"message", "long-message", "question", "choose", "licence"}) {
        EXPECT_TRUE(Did(m_user.Press(button)));
        EXPECT_TRUE(m_service.HasSheet()) << button;
        EXPECT_STREQ(m_user.FindFaults().GetData(), "") << button;
        EXPECT_TRUE(Did(m_user.PressClose()));
    }
}

TEST_P(Gallery, WorksByKeyboardAlone) {
    std::set<std::string> visited;
    for (int step = 0; step < 20; ++step) {
        m_user.Key(kUIKeyTab);
        Settle();
        const std::string name = Focused();
        visited.insert(name);
        if (name == "toggle" || name == "exit" || name == "next") {
            continue;
        }
        m_user.Key(kUIKeySpace);
        Settle();
        if (m_service.HasSheet()) {
            m_user.Key(kUIKeyEscape);
            Settle();
        }
        EXPECT_EQ(Focused(), name); // it comes back to where it was
    }
    EXPECT_EQ(visited,
              (std::set<std::string>{"user", "password", "folder", "shortcut", "lines", "styled",
                                     "message", "long-message", "question", "choose", "licence",
                                     "file", "pick-folder", "toggle", "exit", "next"}));
    m_user.Key(kUIKeyEnter);
    Settle();
    EXPECT_TRUE(Shows("pressed: next"));
    m_user.Key(kUIKeyEscape);
    Settle();
    EXPECT_EQ(Dump(), "");
    EXPECT_FALSE(m_running);
}

INSTANTIATE_TEST_SUITE_P(Languages, Gallery,
                         testing::Values(UIGalleryLanguage::English, UIGalleryLanguage::German));

} // namespace
