#include "client/classify/show.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "client/json_access.h"

namespace brumectl::show {

namespace {

constexpr int BAR_COLUMNS = 24;
constexpr uint64_t USEC_PER_SEC = 1000000;

std::vector<TextTable::Cell> row(const std::string& name, const Volume& volume, const Volume& total,
                                 Terminal::colour_e colour) {
    const double share = share_of(volume.bytes, total.bytes);
    return {{harmless(name), false, colour},
            {count_text(volume.packets), true},
            {bytes_text(volume.bytes), true},
            {percent_text(share), true},
            {bar(share, BAR_COLUMNS), false, colour == Terminal::DIM ? Terminal::DIM : Terminal::BLUE}};
}

Json::Value volume_json(const Volume& volume) {
    Json::Value out;
    out["packets"] = Json::UInt64(volume.packets);
    out["bytes"] = Json::UInt64(volume.bytes);
    return out;
}

Json::Value tally_json(const Tally& tally) {
    Json::Value out;
    out["protocols"] = Json::Value(Json::objectValue);
    for (const auto& [name, volume] : tally.protocols)
        out["protocols"][name] = volume_json(volume);
    out["unclassified"] = volume_json(tally.unclassified);
    out["not_ip"] = volume_json(tally.not_ip);
    out["total"] = volume_json(tally.total());
    return out;
}

Json::Value file_json(const FileResult& result) {
    Json::Value out = tally_json(result.tally);
    out["file"] = result.file;
    out["pieces"] = Json::UInt64(result.pieces);
    out["padded"] = Json::UInt64(result.repairs.padded);
    out["unconverted"] = Json::UInt64(result.repairs.unconverted);
    out["too_long"] = Json::UInt64(result.repairs.too_long);
    out["strays"] = Json::UInt64(result.strays);
    if (!result.error.empty()) out["error"] = result.error;
    return out;
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
    const struct {
        uint64_t count;
        const char* text;
    } all[] = {
        {result.repairs.padded, "cut short by the capture and filled up with zeros"},
        {result.repairs.unconverted, "left out: broken, or not to be had as Ethernet"},
        {result.repairs.too_long, "left out: longer than 65535 bytes"},
        {result.strays, "in the answer that are not in the file"},
    };
    std::vector<std::string> out;
    for (const auto& remark : all)
        if (remark.count > 0) out.push_back(counted(remark.count, "packet", "packets") + " " + remark.text);
    return out;
}

std::string text(const std::vector<FileResult>& results, const Terminal& terminal) {
    const Tally tally = sum(results);
    const Volume total = tally.total();
    TextTable table({"PROTOCOL", "PACKETS", "BYTES", "SHARE", ""});
    for (const auto& [name, volume] : ranked(tally))
        table.add(row(name, volume, total, Terminal::PLAIN));
    if (tally.unclassified.packets > 0)
        table.add(row("unclassified", tally.unclassified, total, Terminal::DIM));
    if (tally.not_ip.packets > 0) table.add(row("not IP", tally.not_ip, total, Terminal::DIM));
    auto last = row("total", total, total, Terminal::BOLD);
    last.resize(3);
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
                                     : frame.is_ip ? "unclassified"
                                                   : "not IP";
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
    Json::Value out = tally_json(sum(results));
    out["files"] = Json::Value(Json::arrayValue);
    for (const FileResult& result : results)
        out["files"].append(file_json(result));
    if (results.size() == 1 && !results[0].answer.isNull()) out["answer"] = results[0].answer;
    return out;
}

}  // namespace brumectl::show
