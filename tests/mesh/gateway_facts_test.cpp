// The gateway facts come from the text of other programs: what is kept, what is refused, what is
// said.

#include <gtest/gtest.h>

#include "mesh/gateway_facts.h"
#include "support/own_log.h"

namespace {

const char *text_or_none(const char *text)
{
    return text ? text : "none";
}

struct GatewayFacts : testing::Test, logging {
    mesh_gateway_facts facts{};

    void TearDown() override { mesh_gateway_facts_clear(&facts); }
    std::string all() const
    {
        return std::string(text_or_none(facts.mac)) + " " + text_or_none(facts.quality) + " " +
               text_or_none(facts.route) + " " + text_or_none(facts.latency) + " " +
               text_or_none(facts.speed);
    }
};

TEST_F(GatewayFacts, AnAnswerTakesThePlaceOfWhatWasKnownBefore)
{
    const struct {
        const char *answer;
        int result;
        const char *facts, *message;
    } cases[] = {
        {"gwm|02:11:00:00:00:01 gwq|251 tr|02:11:00:00:00:02,02:11:00:00:00:01 p|1.511 tp|15-MB/s",
         0, "02:11:00:00:00:01 251 02:11:00:00:00:02,02:11:00:00:00:01 1.511 15-MB/s", ""},
        {"gwm|02:11:00:00:00:03  p|0.5 tr| tp|", -1, "02:11:00:00:00:03 none none 0.5 none",
         "Unable to find the gateway speed from the mesh.info file"},
        {"   ", -1, "none none none none none",
         "Unable to find a gateway MAC from the mesh.info file"},
        {"gwq|7 gwq|8", -1, "none 7 none none none", "Parsed token (gwq|8) does not match"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(mesh_gateway_facts_parse(&facts, c.answer), c.result) << c.answer;
        EXPECT_EQ(all(), c.facts);
        EXPECT_TRUE(logged(c.message)) << c.answer;
    }
    EXPECT_TRUE(logged("the delimiter ' ' was not found."));
}

TEST_F(GatewayFacts, RefusesEveryTokenThatIsNotExactlyOfItsForm)
{
    const char *unknown = "does not match any of the known token types";
    const struct {
        const char *token, *message;
    } cases[] = {
        {"gwm|02:11:00:00:00", unknown},
        {"gwm|02:11:00:00:00:01;reboot", unknown},
        {"gwm|02:11:00:00:00:01:07", unknown},
        {"gwm|02:11:00:00:00:01:", unknown},
        {"gwm|$(reboot)", unknown},
        {"gwm|002:11:00:00:00:01", unknown},
        {"gwm|+2:0x:00:00:00:01", unknown},
        {"gwq|256", unknown},
        {"gwq|-1", unknown},
        {"gwq|25x", unknown},
        {"gwq|99999999999999999999", unknown},
        {"tr|02:11:00:00:00:01,*", unknown},
        {"tr|02:11:00:00:00:01,", unknown},
        {"tr|,02:11:00:00:00:01", unknown},
        {"p|nan", unknown},
        {"p|1.5ms", unknown},
        {"p|-0.5", "The recovered latency is less than 0.0"},
        {"tp|fast-MB/s", "failed to convert (fast-MB/s) to a valid number"},
        {"tp|1e99-MB/s", "would cause an overflow"},
        {"tp|1e-99-MB/s", "would cause an underflow"},
        {"tp|12", "does not contain a speed unit"},
        {"tp|-3-MB/s", "The recovered speed is less than 0.0"},
        {"tp|3-furlongs", "A valid speed unit was not found"},
        {"xx|1", unknown},
    };
    for (const auto &bad : cases) {
        log.clear();
        EXPECT_EQ(mesh_gateway_facts_parse(&facts, bad.token), -1) << bad.token;
        EXPECT_EQ(all(), "none none none none none") << bad.token;
        EXPECT_TRUE(logged(bad.message)) << bad.token << "\n" << log.text();
    }
}

TEST_F(GatewayFacts, JudgesTheSpeed)
{
    struct {
        const char *speed;
        bool low;
        const char *message;
    } const cases[] = {
        {"200-KB/s", true, "02:11:00:00:00:01 is low (1600 Kbps)"},
        {"249.9-KB/s", true, "is low (1992 Kbps)"},
        {"250-KB/s", false, nullptr},
        {"900-Bytes/s", true, "is low (< 8 Kbps)"},
        {"0.1-MB/s", false, nullptr},
        {"0-GB/s", false, nullptr},
        {"1e30-KB/s", false, nullptr},
    };
    for (const auto &c : cases) {
        log.clear();
        mesh_gateway_facts_parse(&facts, std::string("gwm|02:11:00:00:00:01 tp|") + c.speed);
        bool known = false;
        EXPECT_EQ(mesh_gateway_speed_is_low(&facts, &known), c.low) << c.speed;
        EXPECT_TRUE(known);
        if (c.message) {
            EXPECT_TRUE(logged(c.message)) << c.speed << log.text();
        }
    }
    mesh_gateway_facts_clear(&facts);
    bool known = true;
    EXPECT_FALSE(mesh_gateway_speed_is_low(&facts, &known));
    EXPECT_FALSE(known);
}

} // namespace
