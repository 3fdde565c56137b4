#pragma once
// A classification in words and in JSON.

#include <json/value.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "client/classify/classifier.h"
#include "client/text/terminal.h"

namespace brumectl::show {

/** 0 of nothing. */
double share_of(uint64_t part, uint64_t whole);
/** Protocols by bytes, then packets, the largest first. */
std::vector<std::pair<std::string, Volume>> ranked(const Tally& tally);
/** All files in one. */
Tally sum(const std::vector<FileResult>& results);

/** The table of protocols, and what had to be done to the files. */
std::string text(const std::vector<FileResult>& results, const Terminal& terminal);
/** The line above the rows of `packets_text`. */
std::string packets_head(const Terminal& terminal);
/** One row a packet of the piece; times count from the start of the file. */
std::string packets_text(const Piece& piece, uint64_t start_usec);
/** What of a file isn't as it should be, a sentence each. */
std::vector<std::string> remarks(const FileResult& result);
/** For --json: the sums of all files, and what is told of one, without what is listed. */
Json::Value document(const std::vector<FileResult>& results);
Json::Value document(const FileResult& result);

}  // namespace brumectl::show
