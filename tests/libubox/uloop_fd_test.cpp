// Descriptors: what callbacks are told, when they run, and what may happen inside them.
#include <memory>
#include <vector>

#include "libubox/loop_fixture.h"

TEST_F(Loop, AHangUpTakesTheDescriptorOutBeforeItsLastCallback)
{
    struct {
        const char *name;
        kind k;
        unsigned flags;
        void (*act)(fd_pair &);
        const char *told; ///< events, eof, error, registered
        int times;        ///< out of three rounds
    } static const ROWS[] = {
        {"peer closes", SOCKETS, ULOOP_READ, [](fd_pair &p) { p.close_theirs(); }, "1 1 1 0", 1},
        {"peer closes, asked to stay", SOCKETS, ULOOP_READ | ULOOP_ERROR_CB,
         [](fd_pair &p) { p.close_theirs(); }, "1 1 1 1", 3},
        {"peer stops writing", SOCKETS, ULOOP_READ, [](fd_pair &p) { shutdown(p.theirs, SHUT_WR); },
         "1 1 0 1", 3},
        {"writer leaves data and closes", PIPE_TO_US, ULOOP_READ,
         [](fd_pair &p) {
             p.send("x");
             p.close_theirs();
         },
         "1 0 1 0", 1},
        {"writer closes", PIPE_TO_US, ULOOP_READ, [](fd_pair &p) { p.close_theirs(); }, "0 0 1 0",
         1},
        {"reader closes", PIPE_FROM_US, ULOOP_WRITE, [](fd_pair &p) { p.close_theirs(); },
         "2 0 1 0", 1},
    };
    for (const auto &row : ROWS) {
        SCOPED_TRACE(row.name);
        fd_pair pair(row.k);
        std::vector<std::string> told;
        watch w(pair.ours, [&](unsigned events) {
            told.push_back(std::to_string(events) + " " + std::to_string(w.eof) + " " +
                           std::to_string(w.error) + " " + std::to_string(w.registered));
        });
        ASSERT_EQ(uloop_fd_add(&w, row.flags), 0);
        row.act(pair);
        for (int round = 0; round < 3; round++)
            uloop_run_timeout(0);
        EXPECT_EQ(told, std::vector<std::string>(static_cast<size_t>(row.times), row.told));
    }
}

TEST_F(Loop, DeletingInACallbackDropsEventsAlreadyFetched)
{
    fd_pair a, b;
    std::unique_ptr<watch> watches[2];
    for (auto &w : watches) {
        w = std::make_unique<watch>(&w == watches ? a.ours : b.ours, [&](unsigned) {
            auto &both = watches; // the function goes with its record
            log += "fd ";
            for (auto &one : both)
                one.reset();
        });
    }
    uloop_fd_add(watches[0].get(), ULOOP_READ);
    uloop_fd_add(watches[1].get(), ULOOP_READ | ULOOP_EDGE_TRIGGER);
    a.close_theirs();
    b.close_theirs();
    for (int round = 0; round < 3; round++)
        uloop_run_timeout(0);
    EXPECT_EQ(log, "fd ");
}

TEST_F(Loop, ANestedRunReentersLevelCallbacksAndPostponesEdges)
{
    for (bool edge : {false, true}) {
        fd_pair pair;
        int calls = 0, depth = 0, deepest = 0;
        watch w(pair.ours, [&](unsigned) {
            deepest = std::max(deepest, ++depth);
            if (++calls == 1) {
                pair.send("y");
                uloop_run_timeout(0);
                uloop_run_timeout(0);
                EXPECT_EQ(calls, edge ? 1 : 3);
            }
            depth--;
        });
        uloop_fd_add(&w, ULOOP_READ | (edge ? ULOOP_EDGE_TRIGGER : 0));
        pair.send("x");
        uloop_run_timeout(0);
        EXPECT_EQ(deepest, edge ? 1 : 2);
        EXPECT_EQ(calls, edge ? 2 : 3);
    }
}
