#include "client/classify/show.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "client/text/json_access.h"

namespace brumectl::show {

namespace {

constexpr int BAR_COLUMNS = 24;
constexpr size_t MAX_REASONS = 8;
constexpr uint64_t USEC_PER_SEC = 1000000;

bool has_flows(const std::vector<FileResult>& results) {
    return std::any_of(results.begin(), results.end(),
                       [](const FileResult& result) { return result.has_flows; });
}

std::vector<TextTable::Cell> row(const std::string& name, const Volume& volume, const Volume& total,
                                 bool with_flows, Terminal::colour_e colour) {
    const double share = share_of(volume.bytes, total.bytes);
    std::vector<TextTable::Cell> cells = {{harmless(name), false, colour}};
    if (with_flows) cells.push_back({count_text(volume.flows), true});
    cells.push_back({count_text(volume.packets), true});
    cells.push_back({bytes_text(volume.bytes), true});
    cells.push_back({percent_text(share), true});
    cells.push_back(
        {bar(share, BAR_COLUMNS), false, colour == Terminal::DIM ? Terminal::DIM : Terminal::BLUE});
    return cells;
}

Json::Value volume_json(const Volume& volume, bool with_flows) {
    Json::Value out;
    out["packets"] = Json::UInt64(volume.packets);
    out["bytes"] = Json::UInt64(volume.bytes);
    if (with_flows) out["flows"] = Json::UInt64(volume.flows);
    if (with_flows && volume.guessed > 0) out["guessed"] = Json::UInt64(volume.guessed);
    return out;
}

Json::Value tally_json(const Tally& tally, bool with_flows) {
    Json::Value out;
    out["protocols"] = Json::Value(Json::objectValue);
    for (const auto& [name, volume] : tally.protocols)
        out["protocols"][name] = volume_json(volume, with_flows);
    out["unclassified"] = volume_json(tally.unclassified, with_flows);
    out["not_decoded"] = volume_json(tally.undecoded, false);
    for (const auto& [reason, packets] : tally.reasons)
        out["not_decoded"]["reasons"][reason] = Json::UInt64(packets);
    out["total"] = volume_json(tally.total(), with_flows);
    return out;
}

std::string packets_text_of(uint64_t packets) {
    return counted(packets, "packet", "packets");
}

/** "3 packets not decoded: 2 ARP, 1 LLDP". */
std::string undecoded_text(const Tally& tally) {
    std::vector<std::pair<uint64_t, std::string>> reasons;
    for (const auto& [reason, packets] : tally.reasons)
        reasons.emplace_back(packets, reason);
    std::sort(reasons.rbegin(), reasons.rend());
    if (reasons.size() == 1) return packets_text_of(reasons[0].first) + " not decoded: " + reasons[0].second;
    std::string out;
    for (size_t i = 0; i < reasons.size() && i < MAX_REASONS; ++i)
        out += (i == 0 ? "" : ", ") + count_text(reasons[i].first) + " " + reasons[i].second;
    return packets_text_of(tally.undecoded.packets) + " not decoded: " + out +
           (reasons.size() > MAX_REASONS ? " and others" : "");
}

std::string packet_path(const Json::Value& answer) {
    std::string out;
    for (const Json::Value& layer : answer["tph"])
        if (layer.isString()) out += (out.empty() ? "" : "/") + layer.asString();
    return out;
}

}  // namespace

double share_of(uint64_t part, uint64_t whole) {
    return whole == 0 ? 0 : static_cast<double>(part) / static_cast<double>(whole);
}

std::vector<std::pair<std::string, Volume>> ranked(const Tally& tally) {
    std::vector<std::pair<std::string, Volume>> out(tally.protocols.begin(), tally.protocols.end());
    std::stable_sort(out.begin(), out.end(), [](const auto& a, const auto& b) {
        return std::pair(a.second.bytes, a.second.packets) > std::pair(b.second.bytes, b.second.packets);
    });
    return out;
}

Tally sum(const std::vector<FileResult>& results) {
    Tally out;
    for (const FileResult& result : results)
        out.add(result.tally);
    return out;
}

std::vector<std::string> remarks(const FileResult& result) {
    std::vector<std::string> out;
    const uint64_t guessed = result.tally.total().guessed;
    if (result.tally.undecoded.packets > 0) out.push_back(undecoded_text(result.tally));
    if (result.padded > 0)
        out.push_back(packets_text_of(result.padded) + " cut short by the capture and filled up with zeros");
    if (guessed > 0)
        out.push_back(counted(guessed, "flow is a guess", "flows are guesses") +
                      " by port or address: --no-guess leaves them unclassified");
    if (result.evicted > 0)
        out.push_back(counted(result.evicted, "flow was", "flows were") +
                      " forgotten before the end, as the engine's table was full: what came later of one "
                      "counts as another");
    if (result.strays > 0)
        out.push_back(packets_text_of(result.strays) + " in the answer that are not in the file");
    return out;
}

std::string text(const std::vector<FileResult>& results, const Terminal& terminal) {
    const Tally tally = sum(results);
    const Volume total = tally.total();
    const bool flows = has_flows(results);
    TextTable table(flows ? std::vector<std::string>{"PROTOCOL", "FLOWS", "PACKETS", "BYTES", "SHARE", ""}
                          : std::vector<std::string>{"PROTOCOL", "PACKETS", "BYTES", "SHARE", ""});
    for (const auto& [name, volume] : ranked(tally))
        table.add(row(name, volume, total, flows, Terminal::PLAIN));
    if (tally.unclassified.packets > 0)
        table.add(row(UNCLASSIFIED, tally.unclassified, total, flows, Terminal::DIM));
    if (tally.undecoded.packets > 0) {
        auto cells = row("not decoded", tally.undecoded, total, flows, Terminal::DIM);
        if (flows) cells[1].text = "";
        table.add(cells);
    }
    auto last = row("total", total, total, flows, Terminal::BOLD);
    last.resize(last.size() - 2);
    table.add(last);
    std::string out = total.packets > 0 ? table.text(terminal) : std::string();
    for (const FileResult& result : results)
        for (const std::string& remark : remarks(result))
            out += terminal.paint(Terminal::YELLOW, harmless(result.file) + ": " + remark) + "\n";
    return out;
}

std::string packets_head(const Terminal& terminal) {
    return terminal.paint(Terminal::BOLD, "  NUMBER        TIME    LEN  PROTOCOL          FROM, TO, LAYERS") +
           "\n";
}

std::string packets_text(const Piece& piece, uint64_t start_usec) {
    static const Json::Value NONE(Json::objectValue);
    std::string out;
    for (const PieceFrame& frame : piece.frames()) {
        const uint64_t since = frame.usec - start_usec;
        char head[80];
        snprintf(head, sizeof(head), "%8" PRIu64 " %4" PRIu64 ".%06u %6u  ", frame.number,
                 since / USEC_PER_SEC, static_cast<unsigned>(since % USEC_PER_SEC),
                 static_cast<unsigned>(frame.len));
        const Json::Value& answer = frame.answer ? *frame.answer : NONE;
        const std::string protocol = frame.answer  ? string_of(answer["protocol"])
                                     : frame.is_ip ? UNCLASSIFIED
                                     : frame.reason != 0
                                         ? "not decoded: " + link_layer::reason_text(frame.reason)
                                         : "not decoded";
        out += head;
        if (!frame.is_ip) {
            out += protocol + "\n";
            continue;
        }
        out += padded(harmless(protocol), 16) + "  " + frame.src + " > " + frame.dst;
        const std::string path = harmless(packet_path(answer));
        out += (path.empty() ? "" : "  " + path) + "\n";
    }
    return out;
}

Json::Value document(const std::vector<FileResult>& results) {
    return tally_json(sum(results), has_flows(results));
}

Json::Value document(const FileResult& result) {
    Json::Value out = tally_json(result.tally, result.has_flows);
    out["file"] = result.file;
    out["pieces"] = Json::UInt64(result.pieces);
    out["padded"] = Json::UInt64(result.padded);
    out["strays"] = Json::UInt64(result.strays);
    if (result.has_flows) out["evicted"] = Json::UInt64(result.evicted);
    if (!result.error.empty()) out["error"] = result.error;
    return out;
}

}  // namespace brumectl::show
