// Parsing and judging the gateway facts. Nothing here touches files, processes or global state.

#include "mesh/gateway_facts.h"

#include <array>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/zu/log.h"
#include "platform/zu/mac.h"
#include "platform/zu/number.h"

constexpr int QUALITY_MAX = 255; // batman-adv's transmit quality
constexpr int LOW_SPEED_KB_S = 250;

static bool next_piece(std::string_view &rest, char separator, std::string_view &piece)
{
    if (rest.empty())
        return false;
    const size_t end = rest.find(separator);
    piece = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    return true;
}

static bool str_is_in_range(const std::string &text, int min, int max)
{
    log_debug("str = %s, %i <= %s <= %i", text.c_str(), min, text.c_str(), max);
    int value = 0;
    return zu_number_read(text, &value) && value >= min && value <= max;
}

static bool is_mac(const std::string &text)
{
    return zu_text_is_mac(text);
}

static bool is_quality(const std::string &text)
{
    return str_is_in_range(text, 0, QUALITY_MAX);
}

static bool is_route(const std::string &text)
{
    std::string_view rest = text;
    std::string_view hop;
    while (next_piece(rest, ',', hop))
        if (!zu_text_is_mac(hop))
            return false;
    return !text.empty() && text.back() != ',';
}

static bool is_number(const std::string &text)
{
    char *end = nullptr;
    const float value = strtof(text.c_str(), &end);
    return end != text.c_str() && *end == '\0' && std::isfinite(value);
}

static bool latency_is_possible(const std::string &text)
{
    if (strtof(text.c_str(), nullptr) >= 0.0F)
        return true;
    log_error("The recovered latency is less than 0.0, that is an impossible latency time");
    return false;
}

static bool is_anything(const std::string &)
{
    return true;
}

static const char *range_error_name(float value)
{
    if (std::isinf(value))
        return "an overflow";
    return std::fabs(value) < 1.0F ? "an underflow" : "a range error";
}

static const char *find_speed_unit(const char *text)
{
    for (const char *unit : {"MB/s", "KB/s", "Bytes/s", "GB/s"})
        if (strstr(text, unit))
            return unit;
    return nullptr;
}

/// A number, a separator and a unit; each way to fail has its own message.
static bool speed_is_possible(const std::string &text)
{
    char *end = nullptr;
    errno = 0;
    const float value = strtof(text.c_str(), &end);
    if (end == text.c_str() || std::isnan(value)) {
        log_error("The strtof() call failed to convert (%s) to a valid number", text.c_str());
        return false;
    }
    if (errno == ERANGE || std::isinf(value)) {
        log_error("The returned value from strtof() would cause %s. String passed to strtof() (%s)",
                  range_error_name(value), text.c_str());
        return false;
    }
    if (*end == '\0') {
        log_error("The strtof() call returned an end pointer that does not contain a speed unit. "
                  "String passed to strtof() (%s)",
                  text.c_str());
        return false;
    }
    if (value < 0.0F) {
        log_error("The recovered speed is less than 0.0, that is an impossible speed value");
        return false;
    }
    if (!find_speed_unit(end)) {
        log_error("A valid speed unit was not found in the gateway speed string (%s)",
                  text.c_str());
        return false;
    }
    return true;
}

// One kind of token: a text of the right form is the kind's; one that is then not possible is
// reported by its own check and dropped.
struct token_kind {
    std::string_view prefix;
    bool (*has_form)(const std::string &text);
    bool (*is_possible)(const std::string &text);
    char *mesh_gateway_facts::*fact;
    const char *copy_failed;
    const char *missing;
};

constexpr std::array<token_kind, 5> TOKEN_KINDS = {{
    {"gwm|", is_mac, is_anything, &mesh_gateway_facts::mac,
     "Failed to create a copy of the gateway MAC token",
     "Unable to find a gateway MAC from the mesh.info file"},
    {"gwq|", is_quality, is_anything, &mesh_gateway_facts::quality,
     "Failed to create a copy of the gateway quality token",
     "Unable to find the gateway quality from the mesh.info file"},
    {"tr|", is_route, is_anything, &mesh_gateway_facts::route,
     "Failed to create a copy of the gateway route token",
     "Unable to find the gateway route from the mesh.info file"},
    {"p|", is_number, latency_is_possible, &mesh_gateway_facts::latency,
     "Failed to create a copy of the gateway latency token",
     "Unable to find the gateway latency from the mesh.info file"},
    {"tp|", is_anything, speed_is_possible, &mesh_gateway_facts::speed,
     "Failed to create to copy of the gateway speed token",
     "Unable to find the gateway speed from the mesh.info file"},
}};

/// Each kind is taken once: a second token of a kind counts as unknown.
static void read_token(mesh_gateway_facts *facts, std::string_view token)
{
    for (const token_kind &kind : TOKEN_KINDS) {
        if (facts->*kind.fact || !token.starts_with(kind.prefix))
            continue;
        const std::string text(token.substr(kind.prefix.size()));
        if (!kind.has_form(text))
            break;
        if (!kind.is_possible(text))
            return;
        facts->*kind.fact = strdup(text.c_str());
        if (!(facts->*kind.fact))
            log_error("%s", kind.copy_failed);
        return;
    }
    log_warning("Parsed token (%.*s) does not match any of the known token types",
                static_cast<int>(token.size()), token.data());
}

void mesh_gateway_facts_clear(mesh_gateway_facts *facts)
{
    for (const token_kind &kind : TOKEN_KINDS) {
        free(facts->*kind.fact);
        facts->*kind.fact = nullptr;
    }
}

int mesh_gateway_facts_parse(mesh_gateway_facts *facts, std::string_view text)
{
    mesh_gateway_facts_clear(facts);
    bool any = false;
    std::string_view token;
    while (next_piece(text, ' ', token)) {
        if (token.empty())
            continue;
        any = true;
        read_token(facts, token);
    }
    if (!any)
        log_error(
            "Failed to start parsing of the mesh.info file, the delimiter ' ' was not found.");
    int result = 0;
    for (const token_kind &kind : TOKEN_KINDS) {
        if (facts->*kind.fact)
            continue;
        log_warning("%s", kind.missing);
        result = -1;
    }
    return result;
}

bool mesh_gateway_speed_is_low(const mesh_gateway_facts *facts, bool *known)
{
    *known = facts->speed != nullptr;
    if (!facts->speed) {
        log_error("The mesh gateway speed is NULL, cannot determine if the mesh speed is low");
        return false;
    }
    const char *mac = facts->mac ? facts->mac : "unknown";
    if (strstr(facts->speed, "KB/s")) {
        const float kilobytes = strtof(facts->speed, nullptr);
        if (kilobytes >= LOW_SPEED_KB_S)
            return false;
        log_notice("Mesh throughput to gateway peer %s is low (%i Kbps)", mac,
                   8 * static_cast<int>(kilobytes));
        return true;
    }
    if (!strstr(facts->speed, "Bytes/s"))
        return false;
    log_notice("Mesh throughput to gateway peer %s is low (< 8 Kbps)", mac);
    return true;
}
