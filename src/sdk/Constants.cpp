#include "tovani/Constants.hpp"

namespace tovani {

#define TOVANI_HTTP_ROOT "http://" TOVANI_PRODUCTION_HOST

const char* const TOVANI_SDK_VERSION = "1.1.2";
const char* const TOVANI_BASE_URL = TOVANI_HTTP_ROOT "/ios/tovani/";
const char* const TOVANI_URL_CDN = TOVANI_CDN_URL;
const char* const TOVANI_URL_AD =
    "http://%@/cgi-bin/conad_tovani.fcgi/%@/%@%@?xml=%@&cat2=%@&vendor=%@&osv=%@&device=%@&vdid=%@"
    "&sdk=%@&ac=10";
const char* const TOVANI_URL_ENDCARD = TOVANI_HTTP_ROOT "/endcard/ios/";
const bool TOVANI_DEVELOPER = false;

const char* const TOVANI_PRODUCTION_AD_HOST = TOVANI_PRODUCTION_HOST;
const char* const TOVANI_TEST_AD_HOST = TOVANI_TEST_HOST;
const char* const TOVANI_PRODUCTION_ROOT_URL = TOVANI_HTTP_ROOT;

const double tovaniSDKVersionNumber = 1.0;
const unsigned char tovaniSDKVersionString[] = "@(#)PROGRAM:tovaniSDK  PROJECT:tovaniSDK-1\n";

#undef TOVANI_HTTP_ROOT

}  // namespace tovani
