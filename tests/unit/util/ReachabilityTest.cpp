#include <gtest/gtest.h>

#include "net/Reachability.hpp"

namespace tovani {
namespace {

class FixedFlags : public ReachabilitySource {
 public:
  explicit FixedFlags(std::optional<uint32_t> flags) : flags_(flags) {}
  std::optional<uint32_t> internetFlags() const override { return flags_; }

 private:
  std::optional<uint32_t> flags_;
};

TEST(Reachability, ClassifiesFlags) {
  EXPECT_EQ(Reachability::networkStatusForFlags(0), NotReachable);
  EXPECT_EQ(Reachability::networkStatusForFlags(0x2), ReachableViaWiFi);
  EXPECT_EQ(Reachability::networkStatusForFlags(0x6), NotReachable) << "connection required";
  EXPECT_EQ(Reachability::networkStatusForFlags(0x2E), ReachableViaWiFi) << "comes up by itself";
  EXPECT_EQ(Reachability::networkStatusForFlags(0x3E), NotReachable) << "needs the user";
  EXPECT_EQ(Reachability::networkStatusForFlags(0x40002), ReachableViaWWAN);
  EXPECT_EQ(Reachability::networkStatusForFlags(0x4003E), ReachableViaWWAN);
  EXPECT_EQ(Reachability::networkStatusForFlags(0x4003C), NotReachable) << "not reachable at all";
  EXPECT_EQ(Reachability::networkStatusForFlags(0xE), ReachableViaWiFi) << "on traffic alone";
  EXPECT_EQ(Reachability::networkStatusForFlags(0x16), NotReachable);
}

TEST(Reachability, ReadsTheInternetFlagsOfTheSource) {
  const auto wifi =
      Reachability::reachabilityForInternetConnection(std::make_shared<FixedFlags>(0x2));
  EXPECT_EQ(wifi->currentReachabilityStatus(), ReachableViaWiFi);
  EXPECT_FALSE(wifi->connectionRequired());

  const auto vpn =
      Reachability::reachabilityForInternetConnection(std::make_shared<FixedFlags>(0x6));
  EXPECT_EQ(vpn->currentReachabilityStatus(), NotReachable);
  EXPECT_TRUE(vpn->connectionRequired());
}

TEST(Reachability, UnreadableFlagsMeanNotReachable) {
  const auto unreadable =
      Reachability::reachabilityForInternetConnection(std::make_shared<FixedFlags>(std::nullopt));
  EXPECT_EQ(unreadable->currentReachabilityStatus(), NotReachable);
  EXPECT_FALSE(unreadable->connectionRequired());

  const auto noSource = Reachability::reachabilityForInternetConnection(nullptr);
  EXPECT_EQ(noSource->currentReachabilityStatus(), NotReachable);
  EXPECT_FALSE(noSource->connectionRequired());
}

}  // namespace
}  // namespace tovani
