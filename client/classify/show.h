#pragma once
// A classification as text and as JSON.

#include <json/value.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "client/classify/classifier.h"
#include "client/text/terminal.h"

namespace brumectl::show {

/** 0 if `whole` is 0. */
double share_of(uint64_t part, uint64_t whole);
/** Protocols by bytes, then packets, largest first. */
std::vector<std::pair<std::string, Volume>> ranked(const Tally& tally);
/** All files combined. */
Tally sum(const std::vector<FileResult>& results);

/** The table of protocols, and remarks on how the files were treated. */
std::string text(const std::vector<FileResult>& results, const Terminal& terminal);
/** The header line for the rows of `packets_text`. */
std::string packets_head(const Terminal& terminal);
/** One row per packet of the piece; times are relative to the start of the file. */
std::string packets_text(const Piece& piece, uint64_t start_usec);
/** What is wrong with a file, one sentence each. */
std::vector<std::string> remarks(const FileResult& result);
/** For --json: the totals of all files and each file's details, without the lists. */
Json::Value document(const std::vector<FileResult>& results);
Json::Value document(const FileResult& result);

}  // namespace brumectl::show
