#pragma once
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/TestPlatform.hpp"
#include "tovani/View.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani::test {

// The host's codes in every inventory test.
inline constexpr const char* kMedia = "M";
inline constexpr const char* kSlot = "S";

bool isAdListRequest(const std::string& url);  // the ad-list request (xml=json)
bool isAdRequest(const std::string& url);      // the ad request (xml=vast)

// A host on the test platform: it starts the SDK through the facade as an app does and
// records what it gets back; helpers read the store and the requests the server saw.
class InventoryWorld {
 public:
  InventoryWorld() = default;
  // Lets pending completions run: each holds the viewer, which holds the platform and so
  // the queue that holds the completion.
  ~InventoryWorld() { tp.advance(kSettleSeconds); }
  static constexpr double kSettleSeconds = 60;
  InventoryWorld(const InventoryWorld&) = delete;
  InventoryWorld& operator=(const InventoryWorld&) = delete;

  std::string storePath() const { return tp.documentsFile("tnad_005.data"); }
  void createStore() const { createStoreFile(storePath()); }
  // Answers every ad-list request with `body` (after `delay` seconds).
  void answerAdList(const std::string& body, double delay = 0);
  // Installs the platform, registers the host's delegate and runs init(M, S).
  void start();
  std::shared_ptr<tovaniViewer> viewer() const;

  std::vector<std::string> adListUrls() const;
  std::vector<std::string> adUrls() const;
  std::vector<std::string> downloadUrls() const;

  // A tn_adverts row as a server-supplied store could hold it.
  void addVideoRow(const std::string& adsNo, const std::string& url, const std::string& fileName,
                   int useFlag = 0) const;
  // use_flag of the rows with this file name, in row order.
  std::vector<std::string> useFlags(const std::string& fileName) const;
  // Selected columns of every tn_adverts row, in row order.
  std::vector<std::vector<std::string>> adverts(const std::string& columns) const;

  TestPlatform tp;
  std::shared_ptr<RecordingDelegate> host = std::make_shared<RecordingDelegate>();
  std::shared_ptr<View> hostRoot = std::make_shared<View>();
};

// A scripted answer with `body`, and a transport failure (both after `delay` seconds).
ScriptedHttp::Answer answer(std::string body, double delay = 0, long status = 200);
ScriptedHttp::Answer failure(double delay = 0);

// One advert of the ad list whose first source is the video at `videoUrl`.
std::string advertJson(const std::string& adsNo, const std::string& videoUrl,
                       const std::string& impUrl = "http://t.example/imp");
// An ad list body; without `uuid` the key is left out.
std::string adListJson(const std::vector<std::string>& adverts,
                       const std::optional<std::string>& uuid = std::nullopt);

}  // namespace tovani::test
