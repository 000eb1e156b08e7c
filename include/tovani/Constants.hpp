#pragma once
#include "tovani/Export.hpp"

// Exported constants. Host names are fixed at build time (CMake cache variables
// TOVANI_PRODUCTION_HOST, TOVANI_TEST_HOST, TOVANI_CDN_URL).
namespace tovani {

extern TOVANI_EXPORT const char* const TOVANI_SDK_VERSION;  // "1.1.2", sent as the sdk query value
extern TOVANI_EXPORT const char* const TOVANI_BASE_URL;     // http://<production host>/ios/tovani/
extern TOVANI_EXPORT const char* const TOVANI_URL_CDN;      // media CDN base URL (https), ends in /
// The ad-request template, with eleven %@ placeholders.
extern TOVANI_EXPORT const char* const TOVANI_URL_AD;
extern TOVANI_EXPORT const char* const TOVANI_URL_ENDCARD;  // http://<production host>/endcard/ios/
extern TOVANI_EXPORT const bool TOVANI_DEVELOPER;           // false; read by no code path

extern TOVANI_EXPORT const char* const TOVANI_PRODUCTION_AD_HOST;   // host name only
extern TOVANI_EXPORT const char* const TOVANI_TEST_AD_HOST;         // host name only
extern TOVANI_EXPORT const char* const TOVANI_PRODUCTION_ROOT_URL;  // "http://" + production host

extern TOVANI_EXPORT const double tovaniSDKVersionNumber;  // 1.0
// "@(#)PROGRAM:tovaniSDK  PROJECT:tovaniSDK-1\n"
extern TOVANI_EXPORT const unsigned char tovaniSDKVersionString[];

}  // namespace tovani
