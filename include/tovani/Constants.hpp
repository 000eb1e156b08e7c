#pragma once

// Exported constants. Host names are fixed at build time (CMake cache variables
// TOVANI_PRODUCTION_HOST, TOVANI_TEST_HOST, TOVANI_CDN_URL).
namespace tovani {

extern const char* const TOVANI_SDK_VERSION;  // "1.1.2", sent as the sdk query value
extern const char* const TOVANI_BASE_URL;     // http://<production host>/ios/tovani/
extern const char* const TOVANI_URL_CDN;      // media CDN base URL (https), ends in /
extern const char* const TOVANI_URL_AD;       // ad-request template, eleven %@ placeholders
extern const char* const TOVANI_URL_ENDCARD;  // http://<production host>/endcard/ios/
extern const bool TOVANI_DEVELOPER;           // false; read by no code path

extern const char* const TOVANI_PRODUCTION_AD_HOST;  // host name only
extern const char* const TOVANI_TEST_AD_HOST;        // host name only
extern const char* const TOVANI_PRODUCTION_ROOT_URL; // "http://" + production host

extern const double tovaniSDKVersionNumber;             // 1.0
extern const unsigned char tovaniSDKVersionString[];    // "@(#)PROGRAM:tovaniSDK  PROJECT:tovaniSDK-1\n"

}  // namespace tovani
