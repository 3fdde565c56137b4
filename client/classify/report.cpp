#include "client/classify/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "client/classify/report_style.h"
#include "client/classify/show.h"
#include "client/text/flow_text.h"
#include "client/text/json_access.h"
#include "client/text/terminal.h"

namespace brumectl::report {

namespace {

constexpr size_t COLOURS = 8;  ///< protocols with their own colour; as many as can be told apart
constexpr size_t MAX_CHARTS = 24;
/** In units of about one pixel on a phone, and two on a desktop. */
constexpr double CHART_WIDTH = 460, CHART_HEIGHT = 150, LEFT = 58, TOP = 8, BOTTOM = 22, RIGHT = 20;
constexpr double USEC_PER_SEC = 1e6;

/** Escapes text for an element or a quoted attribute. */
std::string escaped(const std::string& text) {
    std::string out;
    for (char c : harmless(text)) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&#39;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string number(double value, int digits = 1) {
    char buf[64];
    snprintf(buf, sizeof(buf), "%.*f", digits, value);
    return buf;
}

/** A band in the charts and a row of the table. */
struct Band {
    std::string name;
    std::string style;  ///< class for its colour
    Volume volume;
};

/** The protocols with their own colours; all others in one band, then the unclassified. */
std::vector<Band> bands_of(const Tally& tally) {
    std::vector<Band> out;
    Band rest{"other protocols", "rest", {}};
    for (const auto& [name, volume] : show::ranked(tally)) {
        if (out.size() < COLOURS)
            out.push_back({name, "c" + std::to_string(out.size()), volume});
        else
            rest.volume += volume;
    }
    if (rest.volume.packets > 0) out.push_back(rest);
    if (tally.unclassified.packets > 0) out.push_back({UNCLASSIFIED, "none", tally.unclassified});
    return out;
}

std::string tile(const std::string& value, const std::string& name) {
    return "<div><strong>" + value + "</strong><span>" + name + "</span></div>\n";
}

std::string tiles(const std::vector<FileResult>& results, const Tally& tally) {
    const Volume total = tally.total();
    return "<div class=\"tiles\">\n" +
           tile(count_text(total.packets), total.packets == 1 ? "packet" : "packets") +
           tile(bytes_text(total.bytes), "on the wire") +
           (total.flows > 0 ? tile(count_text(total.flows), total.flows == 1 ? "flow" : "flows") : "") +
           tile(count_text(tally.protocols.size()), tally.protocols.size() == 1 ? "protocol" : "protocols") +
           tile(percent_text(show::share_of(tally.classified().bytes, total.bytes)),
                "of the bytes classified") +
           (results.size() > 1 ? tile(count_text(results.size()), "files") : "") + "</div>\n";
}

/** All bands in one bar. */
std::string shares_bar(const std::vector<Band>& bands, uint64_t whole) {
    std::string out =
        "<svg class=\"shares\" viewBox=\"0 0 1000 28\" preserveAspectRatio=\"none\" role=\"img\" "
        "aria-label=\"Shares of the protocols in the bytes\">\n";
    double at = 0;
    for (const Band& band : bands) {
        const double share = show::share_of(band.volume.bytes, whole);
        out += "<rect class=\"" + band.style + "\" x=\"" + number(at, 2) + "\" width=\"" +
               number(share * 1000, 2) + "\" height=\"28\"><title>" + escaped(band.name) + ": " +
               percent_text(share) + "</title></rect>\n";
        at += share * 1000;
    }
    return out + "</svg>\n";
}

std::string legend(const std::vector<Band>& bands) {
    std::string out = "<ul class=\"legend\">\n";
    for (const Band& band : bands)
        out += "<li><svg class=\"key\" viewBox=\"0 0 10 10\" aria-hidden=\"true\"><rect class=\"" +
               band.style + "\" width=\"10\" height=\"10\" rx=\"2\"/></svg>" + escaped(band.name) + "</li>\n";
    return out + "</ul>\n";
}

/** The bars are relative to the largest share, `top`. */
std::string table_row(const std::string& name, const std::string& style, const Volume& volume,
                      const Volume& total, double top) {
    const double share = show::share_of(volume.bytes, total.bytes);
    return "<tr><th scope=\"row\">" + escaped(name) + "</th><td>" + count_text(volume.packets) + "</td><td>" +
           bytes_text(volume.bytes) + "</td><td>" + percent_text(share) +
           "</td><td class=\"bar\"><svg viewBox=\"0 0 100 8\" preserveAspectRatio=\"none\" "
           "aria-hidden=\"true\"><rect class=\"" +
           style + "\" width=\"" + number(share / top * 100, 2) + "\" height=\"8\"/></svg></td></tr>\n";
}

std::string table(const Tally& tally, const std::vector<Band>& bands) {
    const Volume total = tally.total();
    std::string out =
        "<table>\n<thead><tr><th scope=\"col\">Protocol</th><th scope=\"col\">Packets</th>"
        "<th scope=\"col\">Bytes</th><th scope=\"col\">Share</th><th "
        "class=\"bar\"></th></tr></thead>\n<tbody>\n";
    uint64_t largest = std::max(tally.unclassified.bytes, tally.undecoded.bytes);
    for (const auto& [name, volume] : tally.protocols)
        largest = std::max(largest, volume.bytes);
    const double top = std::max(show::share_of(largest, total.bytes), 0.0001);
    size_t rank = 0;
    for (const auto& [name, volume] : show::ranked(tally)) {
        out += table_row(name, rank < COLOURS ? bands[rank].style : "rest", volume, total, top);
        ++rank;
    }
    if (tally.unclassified.packets > 0)
        out += table_row(UNCLASSIFIED, "none", tally.unclassified, total, top);
    if (tally.undecoded.packets > 0) out += table_row("not decoded", "none", tally.undecoded, total, top);
    return out + "</tbody>\n<tfoot><tr><th scope=\"row\">total</th><td>" + count_text(total.packets) +
           "</td><td>" + bytes_text(total.bytes) +
           "</td><td></td><td class=\"bar\"></td></tr></tfoot>\n</table>\n";
}

/** 1, 2 or 5 times a power of ten, such that about `count` of them reach `top`. */
double tick_distance(double top, int count) {
    const double rough = top / count;
    const double power = std::pow(10, std::floor(std::log10(rough)));
    for (double factor : {1.0, 2.0, 5.0})
        if (factor * power >= rough) return factor * power;
    return 10 * power;
}

std::string rate_text(double bytes_per_sec) {
    constexpr const char* UNITS[] = {"B/s", "kB/s", "MB/s", "GB/s", "TB/s"};
    size_t unit = 0;
    for (; bytes_per_sec >= 1000 && unit + 1 < std::size(UNITS); ++unit)
        bytes_per_sec /= 1000;
    char buf[64];
    snprintf(buf, sizeof(buf), "%.4g %s", bytes_per_sec, UNITS[unit]);
    return buf;
}

/** Chooses a unit that keeps the numbers on an axis up to `top` short. */
std::string time_text_for(double seconds, double top) {
    const struct {
        double from, unit;
        const char* name;
    } units[] = {{172800, 86400, "d"}, {7200, 3600, "h"},  {120, 60, "min"},
                 {1, 1, "s"},          {1e-3, 1e-3, "ms"}, {0, 1e-6, "µs"}};
    for (const auto& unit : units)
        if (top >= unit.from) {
            char buf[64];
            snprintf(buf, sizeof(buf), "%.4g %s", seconds / unit.unit, unit.name);
            return buf;
        }
    return {};
}

double time_unit(double top) {
    if (top >= 172800) return 86400;
    if (top >= 7200) return 3600;
    return top >= 120 ? 60 : 1;
}

/** The stacked areas of one file, with the legend. */
class Chart {
 public:
    Chart(const Course& course, const std::vector<Band>& bands)
        : m_course(course), m_bands(bands), m_steps(course.steps()) {
        m_step_sec = static_cast<double>(course.step_usec()) / USEC_PER_SEC;
        stack();
    }

    std::string html(const std::string& file) const {
        std::string out = "<svg class=\"chart\" viewBox=\"0 0 " + number(CHART_WIDTH, 0) + " " +
                          number(CHART_HEIGHT, 0) +
                          "\" role=\"img\" aria-label=\"Bytes per second by protocol "
                          "over the time of " +
                          escaped(file) + "\">\n";
        out += axes();
        for (size_t i = 0; i < m_bands.size(); ++i)
            if (is_seen(i)) out += area(i);
        return out + "</svg>\n" + legend(seen());
    }

 private:
    /** The upper edge of each band at each step, in bytes; index 0 is the baseline. */
    void stack() {
        m_tops.assign(m_bands.size() + 1, std::vector<double>(m_steps, 0));
        for (const auto& [name, bytes] : m_course.protocols())
            for (size_t step = 0; step < m_steps; ++step)
                m_tops[band_of(name) + 1][step] += static_cast<double>(bytes[step]);
        for (size_t i = 1; i < m_tops.size(); ++i)
            for (size_t step = 0; step < m_steps; ++step)
                m_tops[i][step] += m_tops[i - 1][step];
        m_top = std::max(1.0, *std::max_element(m_tops.back().begin(), m_tops.back().end()));
    }
    bool is_seen(size_t band) const { return m_tops[band + 1] != m_tops[band]; }
    std::vector<Band> seen() const {
        std::vector<Band> out;
        for (size_t i = 0; i < m_bands.size(); ++i)
            if (is_seen(i)) out.push_back(m_bands[i]);
        return out;
    }
    /** Names without their own band belong to "other protocols"; the empty name is unclassified. */
    size_t band_of(const std::string& name) const {
        const std::string wanted = name.empty() ? "none" : "rest";
        for (size_t i = 0; i < m_bands.size(); ++i) {
            const bool is_own = m_bands[i].style[0] == 'c' && m_bands[i].name == name && !name.empty();
            if (is_own || m_bands[i].style == wanted) return i;
        }
        return m_bands.size() - 1;
    }

    double x(size_t step) const {
        return LEFT + (CHART_WIDTH - LEFT - RIGHT) * static_cast<double>(step) / static_cast<double>(m_steps);
    }
    double y(double bytes) const { return TOP + (CHART_HEIGHT - TOP - BOTTOM) * (1 - bytes / m_top); }

    /** Flat within a step, as nothing is known about the time in between. */
    std::string area(size_t band) const {
        std::string path = "M" + number(x(0)) + " " + number(y(m_tops[band][0]));
        for (size_t step = 0; step < m_steps; ++step)
            path += "V" + number(y(m_tops[band + 1][step])) + "H" + number(x(step + 1));
        for (size_t step = m_steps; step-- > 0;)
            path += "V" + number(y(m_tops[band][step])) + "H" + number(x(step));
        return "<path class=\"" + m_bands[band].style + "\" d=\"" + path + "Z\"><title>" +
               escaped(m_bands[band].name) + "</title></path>\n";
    }

    std::string axes() const {
        std::string out;
        const double rate = m_top / m_step_sec;
        for (double value = 0, tick = tick_distance(rate, 5); value <= rate * 1.001; value += tick) {
            const std::string at = number(y(value * m_step_sec));
            out += "<line class=\"grid\" x1=\"" + number(LEFT) + "\" x2=\"" + number(CHART_WIDTH - RIGHT) +
                   "\" y1=\"" + at + "\" y2=\"" + at + "\"/><text class=\"y\" x=\"" + number(LEFT - 5) +
                   "\" y=\"" + at + "\">" + rate_text(value) + "</text>\n";
        }
        const double span = m_step_sec * static_cast<double>(m_steps);
        const double unit = time_unit(span);
        for (double value = 0, tick = tick_distance(span / unit, 6) * unit; value <= span * 1.001;
             value += tick)
            out += "<text class=\"x\" x=\"" + number(LEFT + (CHART_WIDTH - LEFT - RIGHT) * value / span) +
                   "\" y=\"" + number(CHART_HEIGHT - 4) + "\">" + time_text_for(value, span) + "</text>\n";
        return out;
    }

    const Course& m_course;
    const std::vector<Band>& m_bands;
    size_t m_steps;
    double m_step_sec;
    std::vector<std::vector<double>> m_tops;
    double m_top = 1;
};

std::string list(const std::string& title, const std::vector<const char*>& head, const std::string& rows) {
    std::string out = "<h3>" + title + "</h3>\n<div class=\"list\"><table>\n<thead><tr>";
    for (const char* column : head)
        out += std::string("<th scope=\"col\">") + column + "</th>";
    return out + "</tr></thead>\n<tbody>\n" + rows + "</tbody>\n</table></div>\n";
}

/** Two lines per cell: rows with many columns don't fit on a phone. */
std::string cell(const std::string& first, const std::string& second) {
    return "<td>" + escaped(first) + (second.empty() ? "" : "<br><span>" + escaped(second) + "</span>") +
           "</td>";
}

std::string packets_of(const Json::Value& value) {
    return counted(count_of(member_of(value, "packets")), "packet", "packets");
}

std::string bytes_of(const Json::Value& value) {
    return bytes_text(count_of(member_of(value, "bytes")));
}

std::string lists(const FileResult& result) {
    std::string flows;
    for (const Json::Value& flow : result.flows)
        flows += "<tr>" + cell(flow_text::endpoint(flow, "client"), flow_text::endpoint(flow, "server")) +
                 cell(flow_text::protocol(flow), flow_text::server_name(flow)) +
                 cell(bytes_of(flow), packets_of(flow)) + "</tr>\n";
    std::string hosts;
    for (const Json::Value& host : result.hosts)
        hosts += "<tr>" + cell(string_of(member_of(host, "address")), "") +
                 cell(counted(count_of(member_of(host, "flows")), "flow", "flows"), "") +
                 cell(bytes_of(host), packets_of(host)) + "</tr>\n";
    const uint64_t all = result.tally.total().flows;
    const std::string title = result.flows.size() < all ? "The " + count_text(result.flows.size()) +
                                                              " largest of " + count_text(all) + " flows"
                                                        : "Flows";
    return (flows.empty() ? "" : list(title, {"Client, server", "Protocol, name", "Bytes"}, flows)) +
           (hosts.empty() ? "" : list("Hosts by bytes", {"Address", "Flows", "Bytes"}, hosts));
}

std::string file_section(const FileResult& result, const std::vector<Band>& bands) {
    std::string out = "<section>\n<h2>" + escaped(result.file) + "</h2>\n";
    if (!result.error.empty()) out += "<p class=\"fault\">" + escaped(result.error) + "</p>\n";
    for (const std::string& remark : show::remarks(result))
        out += "<p class=\"note\">" + escaped(remark) + "</p>\n";
    if (!result.course.protocols().empty() && !bands.empty()) {
        const Volume total = result.tally.total();
        out += "<p class=\"note\">" + counted(total.packets, "packet", "packets") + ", " +
               bytes_text(total.bytes) + ", from " +
               time_text(static_cast<int64_t>(result.course.first_usec() / 1000000)) + "</p>\n";
        out += Chart(result.course, bands).html(result.file);
    }
    out += lists(result);
    return out + "</section>\n";
}

}  // namespace

std::string page(const std::vector<FileResult>& results) {
    const Tally tally = show::sum(results);
    const std::vector<Band> bands = bands_of(tally);
    const std::string title = results.size() == 1
                                  ? "Traffic in " + escaped(results[0].file)
                                  : "Traffic in " + std::to_string(results.size()) + " captures";
    std::string out =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<meta name=\"color-scheme\" content=\"light dark\">\n<title>" +
        title + "</title>\n<style>" + STYLE + "</style>\n</head>\n<body>\n<main>\n<h1>" + title + "</h1>\n" +
        tiles(results, tally) + "<section>\n<h2>Protocols by bytes</h2>\n" +
        shares_bar(bands, tally.total().bytes) + table(tally, bands) + "</section>\n";
    for (size_t i = 0; i < results.size() && i < MAX_CHARTS; ++i)
        out += file_section(results[i], bands);
    if (results.size() > MAX_CHARTS)
        out += "<p class=\"note\">" + std::to_string(results.size() - MAX_CHARTS) +
               " more files are in the numbers, but have no chart.</p>\n";
    return out + "</main>\n</body>\n</html>\n";
}

}  // namespace brumectl::report
