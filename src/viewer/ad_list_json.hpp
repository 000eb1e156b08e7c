#pragma once
#include <chrono>
#include <cstddef>
#include <string_view>

#include <nlohmann/json.hpp>

#include "util/Text.hpp"

// Reading the server's JSON ad list. The body is server input: it is bounded in size and
// depth before anything walks it, and every value is read without assuming its type.
namespace tovani::adlist {

using Json = nlohmann::json;

// A real list holds tens of adverts in a few kilobytes; anything past these is refused.
inline constexpr std::size_t kMaxBodyBytes = 2u * 1024u * 1024u;
// The list itself is five levels deep; objects and arrays nested deeper are dropped while
// parsing, so that printing or copying a value never recurses without bound.
inline constexpr int kMaxDepth = 16;
// Adverts read from one list at most; the rest of a longer list is ignored.
inline constexpr std::size_t kMaxAdverts = 1000;
// Work per turn of the main queue while storing a list: new rows written, adverts looked at.
inline constexpr std::size_t kInsertsPerTurn = 8;
inline constexpr std::size_t kAdvertsPerTurn = 64;
// Wall-clock time one turn may spend; at least one advert is handled per turn.
inline constexpr std::chrono::milliseconds kTurnBudget{50};

// The parsed body; an unparsable or oversized body gives an empty object, as the platform's
// JSON reading of a broken body gives nothing to look up.
Json parseBody(std::string_view body);

// The member `key` of `value` when `value` is an object holding it, otherwise nullptr.
const Json* member(const Json* value, const char* key);

// A value as the store keeps it, printed the way the platform prints it. Absent (nullptr)
// gives none, which formats as "(null)".
Text valueText(const Json* value);

}  // namespace tovani::adlist
