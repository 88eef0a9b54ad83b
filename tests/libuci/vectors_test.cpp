// Recorded behaviour, a file a case: config files that load and what they show and export, files
// that are refused and how, and sequences of commands with every file they leave.
#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>

#include "support/json_rows.h"
#include "tool_run.h"

namespace {

const std::string DATA = std::string(TEST_DATA_DIR) + "/libuci/";

std::vector<std::string> names_in(const std::string &folder, const std::string &extension)
{
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(DATA + folder))
        if (entry.path().extension() == extension)
            names.push_back(entry.path().stem());
    std::sort(names.begin(), names.end());
    return names;
}

std::string test_name(const testing::TestParamInfo<std::string> &info)
{
    std::string name = info.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

std::optional<std::string> optional_text(json_object *object)
{
    return object ? std::optional(text(object)) : std::nullopt;
}

/// Compares `actual` with the record's member, if it has one; null there means no file.
void expect_member(json_object *record, const char *name, const std::optional<std::string> &actual)
{
    json_object *expected = nullptr;
    if (json_object_object_get_ex(record, name, &expected)) {
        EXPECT_EQ(optional_text(expected), actual) << name;
    }
}

void expect_result(json_object *record, const tool_result &result)
{
    EXPECT_EQ(json_object_get_int(member(record, "exit")), result.exit);
    expect_member(record, "stdout", result.out);
    expect_member(record, "stderr", result.err);
}

} // namespace

class ValidFile : public testing::TestWithParam<std::string> {};

TEST_P(ValidFile, ShowsExportsAndReadsBack)
{
    const std::string name = GetParam();
    const auto recorded = [&](const char *extension) {
        return content(DATA + "valid/" + name + extension);
    };
    uci_directories dirs;
    write_file(dirs.conf(name), recorded(".conf").value());
    EXPECT_EQ(recorded(".export"), dirs.run({"export", name}).out);
    EXPECT_EQ(recorded(".show"), dirs.run({"show", name}).out);

    // What export wrote is read as the same package.
    const tool_result imported = dirs.run({"import", name}, recorded(".export").value());
    EXPECT_EQ(imported.exit, 0) << imported.err;
    EXPECT_EQ(recorded(".export"), dirs.run({"export", name}).out);
}

INSTANTIATE_TEST_SUITE_P(Recorded, ValidFile, testing::ValuesIn(names_in("valid", ".conf")),
                         test_name);

class InvalidFile : public testing::TestWithParam<std::string> {};

TEST_P(InvalidFile, IsRefusedOrSkippedLineByLine)
{
    const std::string file = GetParam() + ".conf";
    const json_handle records = load_json("libuci/invalid/errors.json");
    json_object *record = nullptr;
    for (json_object *each : elements(records.get()))
        if (text(member(each, "file")) == file)
            record = each;
    ASSERT_TRUE(record);

    uci_directories dirs;
    const std::string package = GetParam();
    write_file(dirs.conf(package), content(DATA + "invalid/" + file).value());
    expect_result(record, dirs.run({"export", package}));
    expect_result(member(record, "non_strict"), dirs.run({"-S", "export", package}));
}

INSTANTIATE_TEST_SUITE_P(Recorded, InvalidFile, testing::ValuesIn(names_in("invalid", ".conf")),
                         test_name);

class Operations : public testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        record = load_json("libuci/ops/" + GetParam() + ".json");
        ASSERT_TRUE(record);
        if (json_object *package = member(record.get(), "package"))
            net = text(package);
        if (json_object *base = member(record.get(), "base"))
            write_file(dirs.conf(net), text(base));
        json_object *files = member(record.get(), "files");
        if (files) {
            json_object_object_foreach(files, name, content)
            {
                write_file(dirs.conf(name), text(content));
            }
        }
        if (json_object *delta = member(record.get(), "delta_file"))
            write_file(dirs.save(net), text(delta));
    }

    json_object *at(const char *name) { return member(record.get(), name); }

    void play_steps(json_object *steps)
    {
        for (json_object *step : elements(steps)) {
            SCOPED_TRACE(json_object_to_json_string(member(step, "args")));
            expect_result(step, dirs.run(texts(member(step, "args"))));
            expect_member(step, "delta_file_after", content(dirs.save(net)));
        }
    }

    /// One run whose directories the record names: STATE and SAVE.
    void play_run(json_object *run)
    {
        const std::string state = dirs.root() + "/state";
        std::vector<std::string> arguments = {"-c", dirs.conf(), "-C", ""};
        for (const char *part : {"options", "args"})
            for (const std::string &argument : texts(member(run, part)))
                arguments.push_back(argument == "STATE"  ? state
                                    : argument == "SAVE" ? dirs.save()
                                                         : argument);
        expect_result(run, run_tool(arguments, ""));
        expect_member(run, "state_file_after", content(state + "/" + net));
        expect_member(run, "save_file_after", content(dirs.save(net)));
    }

    uci_directories dirs;
    json_handle record;
    std::string net = "net";
};

TEST_P(Operations, LeaveWhatWasRecorded)
{
    play_steps(at("steps"));
    for (json_object *run : elements(at("runs"))) {
        SCOPED_TRACE(json_object_to_json_string(run));
        play_run(run);
    }
    if (at("stdin")) {
        expect_result(record.get(), dirs.run({"batch"}, text(at("stdin"))));
        expect_member(record.get(), "delta_file_after", content(dirs.save(net)));
    }
    for (const char *command : {"show", "changes", "export"})
        expect_member(record.get(), command, dirs.run({command, net}).out);
    expect_member(record.get(), "changes_stdout", dirs.run({"changes", net}).out);
    if (at("config_before_commit_unchanged")) {
        EXPECT_EQ(text(at("base")), content(dirs.conf(net)));
    }
    if (at("committed_file")) {
        const tool_result commit = dirs.run({"commit", net});
        EXPECT_EQ(commit.exit, 0);
        EXPECT_EQ(commit.err, "");
    }
    expect_member(record.get(), "committed_file", content(dirs.conf(net)));
    expect_member(record.get(), "config_file_at_end", content(dirs.conf(net)));
    expect_member(record.get(), "delta_file_after_commit", content(dirs.save(net)));
}

INSTANTIATE_TEST_SUITE_P(Recorded, Operations, testing::ValuesIn(names_in("ops", ".json")),
                         test_name);
