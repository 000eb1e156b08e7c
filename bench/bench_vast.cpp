// Cost of turning a VAST answer into the XML tree and reading what ad selection reads, set
// against expat alone parsing the same bytes into empty handlers. The tree's overhead is
// the ratio of the two; its cost per byte on the large answer against the small ones shows
// whether building scales linearly.
//
//   cmake --preset release -B build/xml-rel
//   cmake --build build/xml-rel --target bench_vast
//   build/xml-rel/bench/bench_vast --benchmark_repetitions=15
//       --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <expat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "xml/XMLController.hpp"
#include "xml/XmlValue.hpp"

namespace {

namespace fs = std::filesystem;

struct Document {
  std::string name;
  std::string text;
};

std::vector<Document> loadCorpus() {
  std::vector<Document> docs;
  for (const auto& entry :
       fs::directory_iterator(fs::path(TOVANI_SOURCE_DIR) / "tests/data/vast")) {
    if (entry.path().extension() != ".xml") continue;
    std::string text(fs::file_size(entry.path()), '\0');
    std::ifstream(entry.path(), std::ios::binary)
        .read(text.data(), static_cast<std::streamsize>(text.size()));
    docs.push_back({entry.path().stem().string(), std::move(text)});
  }
  std::sort(docs.begin(), docs.end(),
            [](const Document& a, const Document& b) { return a.name < b.name; });
  return docs;
}

const std::vector<Document>& corpus() {
  static const std::vector<Document> docs = loadCorpus();
  return docs;
}

bool isLarge(const Document& d) {
  return d.text.size() > 50 * 1024;
}

// What ad selection and playback start read from each ad.
void treeAndRead(const std::string& text) {
  tovani::XMLController controller;
  benchmark::DoNotOptimize(controller.parseXML(text));
  for (const tovani::XmlValue& ad : controller.arrayWithKey("Ad")) {
    benchmark::DoNotOptimize(tovani::valueForKeyPath(ad, "id"));
    benchmark::DoNotOptimize(
        tovani::valueForKeyPath(ad, "InLine.Creatives.Creative.Linear.MediaFiles.MediaFile.text"));
    benchmark::DoNotOptimize(
        tovani::valueForKeyPath(ad, "InLine.Creatives.Creative.Linear.TrackingEvents.Tracking"));
  }
}

void XMLCALL noStart(void*, const XML_Char*, const XML_Char**) {}
void XMLCALL noEnd(void*, const XML_Char*) {}
void XMLCALL noText(void*, const XML_Char*, int) {}

void expatOnly(const std::string& text) {
  XML_Parser p = XML_ParserCreate("UTF-8");
  XML_SetElementHandler(p, noStart, noEnd);
  XML_SetCharacterDataHandler(p, noText);
  benchmark::DoNotOptimize(XML_Parse(p, text.data(), static_cast<int>(text.size()), XML_TRUE));
  XML_ParserFree(p);
}

template <void (*Parse)(const std::string&)>
void runOne(benchmark::State& state, const Document* doc) {
  for (auto _ : state) Parse(doc->text);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(doc->text.size()));
}

// All small answers back to back: the cost of a typical answer, per byte.
template <void (*Parse)(const std::string&)>
void runSmall(benchmark::State& state) {
  int64_t bytes = 0;
  for (const Document& d : corpus()) {
    if (!isLarge(d)) bytes += static_cast<int64_t>(d.text.size());
  }
  for (auto _ : state) {
    for (const Document& d : corpus()) {
      if (!isLarge(d)) Parse(d.text);
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * bytes);
}

void registerAll() {
  benchmark::RegisterBenchmark("tree/small_all", runSmall<treeAndRead>);
  benchmark::RegisterBenchmark("expat/small_all", runSmall<expatOnly>);
  for (const Document& d : corpus()) {
    benchmark::RegisterBenchmark(("tree/" + d.name).c_str(), runOne<treeAndRead>, &d);
    benchmark::RegisterBenchmark(("expat/" + d.name).c_str(), runOne<expatOnly>, &d);
  }
}

}  // namespace

int main(int argc, char** argv) {
  registerAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
