#pragma once
#include <array>
#include <string_view>

// App-category codes a host passes to TovaniSDK::init. They reach the server only as one
// opaque "|"-joined string.
namespace tovani::TovaniCategory {

inline constexpr std::string_view RPG = "0101";
inline constexpr std::string_view ACTION_SPORT = "0102";
inline constexpr std::string_view SIMULATION = "0103";
inline constexpr std::string_view RACING = "0104";
inline constexpr std::string_view CASUAL = "0105";
inline constexpr std::string_view PHOTO_RADIO = "02";
inline constexpr std::string_view MUSIC = "03";
inline constexpr std::string_view SPORT = "04";
inline constexpr std::string_view NEWS = "05";
inline constexpr std::string_view ENTERTAINMENT = "06";
inline constexpr std::string_view TRAVEL = "07";
inline constexpr std::string_view BUSINESS = "08";
inline constexpr std::string_view UTILITY = "09";
inline constexpr std::string_view FINANCE = "10";
inline constexpr std::string_view SHOPPING = "11";
inline constexpr std::string_view HEALTH = "12";
inline constexpr std::string_view NAVIGATION = "13";
inline constexpr std::string_view EDUCATION = "14";
inline constexpr std::string_view COMMUNICATION = "15";
inline constexpr std::string_view SNS = "16";
inline constexpr std::string_view COMMUNITY = "17";

struct Entry {
  std::string_view name;
  std::string_view code;
};

// Every category in its defined order.
inline constexpr std::array<Entry, 21> kAll = {{
    {"RPG", RPG},
    {"ACTION_SPORT", ACTION_SPORT},
    {"SIMULATION", SIMULATION},
    {"RACING", RACING},
    {"CASUAL", CASUAL},
    {"PHOTO_RADIO", PHOTO_RADIO},
    {"MUSIC", MUSIC},
    {"SPORT", SPORT},
    {"NEWS", NEWS},
    {"ENTERTAINMENT", ENTERTAINMENT},
    {"TRAVEL", TRAVEL},
    {"BUSINESS", BUSINESS},
    {"UTILITY", UTILITY},
    {"FINANCE", FINANCE},
    {"SHOPPING", SHOPPING},
    {"HEALTH", HEALTH},
    {"NAVIGATION", NAVIGATION},
    {"EDUCATION", EDUCATION},
    {"COMMUNICATION", COMMUNICATION},
    {"SNS", SNS},
    {"COMMUNITY", COMMUNITY},
}};

}  // namespace tovani::TovaniCategory
