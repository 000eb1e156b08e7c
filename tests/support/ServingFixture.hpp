#pragma once
#include <memory>
#include <string>
#include <vector>

#include "support/TestPlatform.hpp"
#include "tovani/View.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani::test {

// A viewer ready to serve ads without running start-up: the store file exists (empty
// schema), the viewer knows its documents folder, store, end-card view and remaining-time
// label, sits on a host screen and reports to a recording host delegate.
class ServingFixture {
 public:
  ServingFixture();
  ~ServingFixture();
  ServingFixture(const ServingFixture&) = delete;
  ServingFixture& operator=(const ServingFixture&) = delete;

  static std::string videoUrl(const std::string& fileName);
  std::string storeFile() const;

  // A tn_adverts row for the ad and its video at videoUrl(fileName). With `writeVideo` the
  // video file is put in the documents folder as well.
  void addAdvert(const std::string& adsNo, const std::string& fileName, int useFlag = 1,
                 bool writeVideo = true);
  // One earlier showing of the ad, dated by an SQL expression such as
  // "datetime('now','-1 day')".
  void addShowing(const std::string& adsNo, const std::string& regDateSql);
  int showings(const std::string& adsNo) const;
  int useFlag(const std::string& fileName) const;
  // The value of an SQL expression evaluated by the store's engine ("date('now')").
  std::string sqlValue(const std::string& expression) const;

  // Ad-list requests, which every refresh of the inventory starts.
  size_t adListRequests() const;
  // URLs of the video downloads started.
  std::vector<std::string> downloads() const;

  TestPlatform tp;
  std::shared_ptr<RecordingDelegate> host = std::make_shared<RecordingDelegate>();
  std::shared_ptr<View> hostRoot = std::make_shared<View>();
  std::shared_ptr<tovaniViewer> viewer;
};

}  // namespace tovani::test
