#pragma once
#include "tovani/Readiness.hpp"

namespace tovani {

class tovaniViewer;

// The readiness report of a started viewer (see TovaniSDK::readiness).
Readiness readViewerReadiness(const tovaniViewer& viewer);

// The frequency status of `rule` for `adid`, read through `store`'s read-only connection.
class StoreReader;
FrequencyStatus readFrequencyStatus(StoreReader& store, const std::string& adid,
                                    const std::string& rule);

}  // namespace tovani
