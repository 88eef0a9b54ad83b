// Jobs over the bus: requests come as events, reports go out as events.
#include "platform/fw_core/jobs.h"
#include "support/bus_fixture.h"

namespace {

struct fake_job : generic_job {
    int starts = 0, frees = 0;
    std::string params;
    int parse_result = 0, start_result = 0;
    int timeout_ms = 5000;
    bool reports_at_once = false;

    fake_job() : generic_job{}
    {
        name = "ap_scan";
        parse_params = [](generic_job *job, blob_attr *given) {
            auto *self = static_cast<fake_job *>(job);
            const zu_text text = zu_blobmsg_json(given, true);
            self->params = text ? text.get() : "none";
            return self->parse_result;
        };
        free_data = [](generic_job *job) {
            static_cast<fake_job *>(job)->frees++;
            generic_job_free_data_handler(job);
        };
        report_params = [](generic_job *, blob_buf *report) {
            void *table = blobmsg_open_table(report, "params");
            const int result = blobmsg_add_u8(report, "checkin_after_scan", 1);
            blobmsg_close_table(report, table);
            return result;
        };
        start = [](generic_job *job) {
            auto *self = static_cast<fake_job *>(job);
            self->starts++;
            generic_job_start_timer(job, self->timeout_ms);
            if (self->reports_at_once)
                generic_job_report_handler(job, "success", "quick");
            return self->start_result;
        };
    }
};

struct Jobs : bus_fixture {
    fake_job job;
    generic_job plain = {};
    package_job_event table[3] = {{"ap_scan", generic_jobs_event_handler, &job},
                                  {"plain", generic_jobs_event_handler, &plain},
                                  {}};
    std::optional<event_log> reports;

    void SetUp() override
    {
        bus_fixture::SetUp();
        plain.name = "plain";
        plain.start = [](generic_job *) { return 0; };
        gPackage_jobs_events = table;
        gUbus_jobs_event_handler.obj = {};
        ASSERT_EQ(ubus_register_event_handler(daemon, &gUbus_jobs_event_handler, "qnet.jobs"), 0);
        reports.emplace(stranger, "qnet.job_status");
    }
    void TearDown() override
    {
        for (generic_job *each : {static_cast<generic_job *>(&job), &plain})
            generic_job_report_handler(each, "failed", "the test is over");
        bus_fixture::TearDown();
    }

    /// Sends a request and gives the next report's text.
    std::string request(const std::string &json)
    {
        reports->all.clear();
        send_event("qnet.jobs", json);
        return next_report();
    }
    std::string next_report()
    {
        run_until([&] { return !reports->all.empty(); });
        return reports->all.empty() ? "" : reports->all[0].document;
    }
    void request_quietly(const std::string &json)
    {
        reports->all.clear();
        send_event("qnet.jobs", json);
        settle();
        EXPECT_TRUE(reports->all.empty()) << json << reports->all[0].document;
    }
};

constexpr const char *REQUEST =
    R"({"job":"ap_scan","id":"17","params":{"checkin_after_scan":true}})";

TEST_F(Jobs, AJobRunsUntilItsReportAndAgain)
{
    for (int run = 1; run <= 2; run++) {
        request_quietly(REQUEST);
        EXPECT_EQ(job.starts, run);
        EXPECT_EQ(job.params, R"({"checkin_after_scan":true})");
        generic_job_report_handler(&job, "success", "ap_scan was successful");
        EXPECT_EQ(next_report(), R"({"job":"ap_scan","id":"17","status":"success",)"
                                 R"("message":"ap_scan was successful",)"
                                 R"("params":{"checkin_after_scan":true}})");
        EXPECT_EQ(job.frees, run);
        EXPECT_FALSE(job.timer.pending);
    }
    reports->all.clear();
    generic_job_report_handler(&job, "success", "there is nothing to report");
    settle();
    EXPECT_TRUE(reports->all.empty());
}

TEST_F(Jobs, ARunningJobIsBusyAndNotDisturbed)
{
    request_quietly(REQUEST);
    EXPECT_EQ(request(R"({"job":"ap_scan","id":"18","params":{"checkin_after_scan":false}})"),
              R"({"job":"ap_scan","id":"18","status":"busy","message":"the job is running",)"
              R"("params":{}})");
    EXPECT_EQ(job.params, R"({"checkin_after_scan":true})");
    EXPECT_EQ(job.starts, 1);
    reports->all.clear();
    generic_job_report_handler(&job, "success", "done");
    EXPECT_NE(next_report().find(R"("id":"17")"), std::string::npos);
}

TEST_F(Jobs, AJobThatTakesTooLongEndsAndCanStartAgain)
{
    job.timeout_ms = 30;
    EXPECT_NE(request(REQUEST).find(R"("id":"17","status":"timeout")"), std::string::npos);
    EXPECT_EQ(job.frees, 1);
    job.timeout_ms = 5000;
    request_quietly(REQUEST);
    EXPECT_EQ(job.starts, 2);
}

TEST_F(Jobs, WhatCannotStartFailsAndLeavesTheJobIdle)
{
    const std::string failed = R"("id":"17","status":"failed")";
    job.parse_result = -1;
    EXPECT_NE(request(REQUEST).find(failed), std::string::npos);
    EXPECT_EQ(job.starts, 0);
    job.parse_result = 0;
    for (const char *params : {"[]", "1", "\"x\"", "null"}) {
        const std::string json = R"({"job":"ap_scan","id":"17","params":)" + std::string(params);
        EXPECT_NE(request(json + "}").find(failed), std::string::npos) << params;
    }
    EXPECT_EQ(job.starts, 0);
    job.start_result = -1;
    EXPECT_NE(request(REQUEST).find(failed), std::string::npos);
    EXPECT_FALSE(job.timer.pending);
    EXPECT_FALSE(job.running);
}

TEST_F(Jobs, AJobMayReportBeforeItsStartReturns)
{
    job.reports_at_once = true;
    EXPECT_NE(request(REQUEST).find(R"("message":"quick")"), std::string::npos);
    job.start_result = -1; // too late to fail: the report is out
    EXPECT_NE(request(REQUEST).find(R"("status":"success")"), std::string::npos);
    settle();
    EXPECT_EQ(reports->all.size(), 1u);
    EXPECT_EQ(job.frees, 2);
}

TEST_F(Jobs, HandlersAJobDoesNotHaveAreSkipped)
{
    request_quietly(R"({"job":"plain","id":"1"})");
    EXPECT_TRUE(plain.running);
    generic_job_report_handler(&plain, "success", "");
    EXPECT_EQ(next_report(),
              R"({"job":"plain","id":"1","status":"success","message":"","params":{}})");
    request_quietly(R"({"job":"ap_scan","id":"2"})");
    EXPECT_EQ(job.params, "none");
}

TEST_F(Jobs, RequestsForNobodyOrFromNobodyAreIgnored)
{
    for (const std::string &json :
         {std::string(R"({"job":"reboot_now","id":"1"})"), std::string("{}"),
          std::string(R"({"id":"1","params":{}})"), std::string(R"({"job":5,"id":"1"})"),
          std::string(R"({"job":"ap_scan"})"), std::string(R"({"job":"ap_scan","id":5})"),
          R"({"job":"ap_scan","id":")" + std::string(JOB_ID_MAX + 1, 'x') + "\"}"})
        request_quietly(json);
    request_quietly(R"({"job":"ap_scan","id":")" + std::string(JOB_ID_MAX, 'x') + "\"}");
    EXPECT_EQ(job.starts, 1);
    gPackage_jobs_events = nullptr;
    request_quietly(REQUEST);
    EXPECT_EQ(job.starts, 1);
}

} // namespace
