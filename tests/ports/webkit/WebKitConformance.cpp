#include "ports/webkit/WebKitDriver.hpp"

namespace tovani::ports {

INSTANTIATE_TEST_SUITE_P(WebKit, WebViewConformance,
                         ::testing::Values(RigMaker<WebViewRig>{
                             "WebKitView", [] { return std::make_unique<WebKitRig>(); }}),
                         rigName<WebViewRig>);

}  // namespace tovani::ports
