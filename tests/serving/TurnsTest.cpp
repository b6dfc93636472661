#include "serving/Turns.h"

#include <event2/event.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>

using namespace zelvo::serving;

TEST(Turns, AreOneClientAfterTheOtherAndAtOnceForWhoHasJustCome) {
    const std::unique_ptr<event_base, decltype(&event_base_free)> base(event_base_new(),
                                                                       &event_base_free);
    Turns turns(base.get());
    std::string called;
    struct Guest final : Turns::Guest {
        void onTurn() override { *heard += client; }
        char client = 0;
        std::string* heard = nullptr;
    };
    std::array<Guest, 24> many;
    int begun = 0;
    for (std::size_t i = 0; i < many.size(); ++i) {
        many[i].client = i < 14 ? 'a' : 'b';
        many[i].heard = &called;
        begun += turns.take(many[i], {many[i].client}) ? 1 : 0;
    }
    EXPECT_EQ(begun, 4);
    event_base_loop(base.get(), EVLOOP_ONCE);
    EXPECT_EQ(called.substr(0, 4), "aaba");
    Guest alone;
    alone.client = 'c';
    alone.heard = &called;
    EXPECT_FALSE(turns.take(alone, "c"));
    event_base_loop(base.get(), EVLOOP_ONCE);
    EXPECT_EQ(called[4], 'c');
    EXPECT_TRUE(turns.take(alone, "c"));
    event_base_dispatch(base.get());
    EXPECT_EQ(called.size(), many.size() - 4 + 1) << "everybody has had one";
}
