// Our reading and writing of JSON beside the library's: what a client sees must not tell which of them did
// it.

#include "infra/corvo_json.h"

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/writer.h>

#include <cmath>
#include <random>
#include <string_view>

#include "infra/corvo_json_reader.h"

namespace {

using corvo::json::PlainReader;

class RandomJson {
 public:
    explicit RandomJson(unsigned seed) : m_random(seed) {}

    unsigned below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }

    Json::Value value(int depth = 0) {
        const unsigned kind = below(depth < 4 ? 10 : 8);
        if (kind == 0) return Json::Value();
        if (kind == 1) return below(2) == 0;
        if (kind == 2) return Json::Value::Int64(m_random()) >> below(64);
        if (kind == 3) return Json::Value::UInt64(m_random()) >> below(64);
        if (kind == 4) return static_cast<double>(static_cast<int64_t>(m_random())) / (1 << below(20));
        if (kind == 5) return 1.0 / (1 + below(1000)) * std::pow(10.0, below(600) / 2.0 - 150);
        if (kind < 8) return text();
        return filled(Json::Value(kind == 8 ? Json::arrayValue : Json::objectValue), depth);
    }

    std::string text() {
        static constexpr std::string_view PIECES[] = {
            "a",      "\"",           "\\",   "\n", "\t",
            "\x01",   "\x7f",         "é",    "€",  "😀",
            "\xc3",   "\xed\xa0\x80", "\xff", "/",  "plain words of eight and more",
            {"\0", 1}};
        std::string out;
        const unsigned kinds = below(2) == 0 ? std::size(PIECES) : 1;
        for (unsigned left = below(24); left > 0; --left)
            out += kinds == 1 ? PIECES[below(2) * 14] : PIECES[below(kinds)];
        return out;
    }

    /** Cuts, doubles, or changes something. */
    std::string mutated(std::string json) {
        static const std::string LETTERS = "{}[],:\"\\ \n0-1.eE/*tfnulx";
        for (unsigned left = below(3); left > 0 && !json.empty(); --left) {
            const size_t at = below(static_cast<unsigned>(json.size()));
            if (below(3) == 0)
                json.erase(at, 1 + below(4));
            else
                json.insert(at, below(2) == 0
                                    ? LETTERS.substr(below(static_cast<unsigned>(LETTERS.size())), 1)
                                    : json.substr(at, 8));
        }
        return json;
    }

 private:
    Json::Value filled(Json::Value value, int depth) {
        for (unsigned left = below(5); left > 0; --left) {
            if (value.isArray())
                value.append(this->value(depth + 1));
            else
                value[text()] = this->value(depth + 1);
        }
        return value;
    }

    std::mt19937_64 m_random;
};

/** The same type, content and offsets, all the way down. */
bool same(const Json::Value& a, const Json::Value& b) {
    if (a.type() != b.type() || a.getOffsetStart() != b.getOffsetStart() ||
        a.getOffsetLimit() != b.getOffsetLimit())
        return false;
    if (!a.isArray() && !a.isObject()) return a == b;
    if (a.size() != b.size() || (a.isObject() && a.getMemberNames() != b.getMemberNames())) return false;
    for (auto i = a.begin(), j = b.begin(); i != a.end(); ++i, ++j)
        if (!same(*i, *j)) return false;
    return true;
}

TEST(Json, TextsAreThoseOfTheLibrarysWriterByteForByte) {
    RandomJson random(1);
    for (int i = 0; i < 20000; ++i) {
        const Json::Value value = random.value();
        ASSERT_EQ(corvo::json::write_line(value), Json::FastWriter().write(value));
    }
}

TEST(Json, WhatTheFastReaderTakesIsWhatTheLibraryReadsToTheLastOffset) {
    RandomJson random(2);
    int taken = 0;
    for (int i = 0; i < 20000; ++i) {
        const Json::Value value = random.value();
        const std::string text =
            random.mutated(i % 2 ? Json::FastWriter().write(value) : Json::StyledWriter().write(value));
        Json::Value ours;
        if (!PlainReader(text.data(), text.data() + text.size()).read(ours)) continue;
        ++taken;
        Json::Value theirs;
        ASSERT_TRUE(Json::Reader().parse(text, theirs, false)) << text;
        ASSERT_TRUE(same(ours, theirs)) << text;
    }
    EXPECT_GT(taken, 2000);
}

// Where numbers, words and strings change their meaning.
TEST(Json, TextsAtTheEdgeAreReadAsTheLibraryReadsThem) {
    for (const std::string text :
         {"[0]",          "[-0]",          "[00]",          "[01]",    "[-]",   "[999999999]",
          "[-999999999]", "[1000000000]",  "[4294967296]",  "[1.5]",   "[1e3]", "[1",
          "12",           "12 ",           "[true]",        "[truex]", "[tru]", "true false",
          "\"a\" 1",      "[\"\\u0041\"]", "[\"a\nb\"]",    "[\"\"]",  "{}",    "{\"a\":1,\"a\":2}",
          "{\"\":[]}",    "[1,]",          "{\"a\":1,}",    "[/**/1]", "",      " ",
          "[[[[[]]]]]",   "[1 2]",         "{\"a\" : [ ] }"}) {
        Json::Value ours;
        Json::Value theirs;
        std::string error;
        Json::Reader reader;
        const bool ok = reader.parse(text, theirs, false);
        ASSERT_EQ(corvo::json::parse(text, ours, &error), ok) << text;
        EXPECT_TRUE(ok ? same(ours, theirs) : error == reader.getFormattedErrorMessages()) << text;
    }
}

}  // namespace
