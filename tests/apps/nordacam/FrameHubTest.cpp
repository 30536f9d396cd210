#ifdef NORDACAM_CORE
#include "apps/nordacam/FrameHub.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace nordacam;
using namespace std::chrono_literals;

TEST(NordacamFrameHub, ReadersGetTheNewestFrameAndNeverQueue) {
    FrameHub hub;
    std::vector<bool> demand;
    hub.setDemandCallback([&](bool on) { demand.push_back(on); });
    uint64_t seen = 0;
    EXPECT_EQ(hub.waitNewer(seen, 1ms), nullptr); // nothing published yet
    {
        FrameHub::Reader a(hub);
        FrameHub::Reader b(hub);
        EXPECT_EQ(hub.readers(), 2);
        for (int i = 1; i <= 5; ++i)
            hub.publish(std::make_shared<const std::string>("frame " + std::to_string(i)));
        // A slow reader skips straight to the newest frame.
        auto data = hub.waitNewer(seen, 1ms);
        ASSERT_TRUE(data);
        EXPECT_EQ(*data, "frame 5");
        EXPECT_EQ(hub.waitNewer(seen, 1ms), nullptr); // nothing newer
        std::thread later([&] {
            std::this_thread::sleep_for(5ms);
            hub.publish(std::make_shared<const std::string>("frame 6"));
        });
        data = hub.waitNewer(seen, 2s);
        later.join();
        ASSERT_TRUE(data);
        EXPECT_EQ(*data, "frame 6");
    }
    // The stream ran from the first reader to the last.
    EXPECT_EQ(demand, (std::vector<bool>{true, false}));
    EXPECT_EQ(hub.readers(), 0);

    // Closing wakes waiting readers at once.
    std::thread closer([&] {
        std::this_thread::sleep_for(5ms);
        hub.close();
    });
    EXPECT_EQ(hub.waitNewer(seen, 10s), nullptr);
    closer.join();
    EXPECT_TRUE(hub.closed());
    hub.publish(std::make_shared<const std::string>("late"));
    EXPECT_EQ(hub.waitNewer(seen, 10s), nullptr); // a closed hub hands out nothing more
}
#endif
