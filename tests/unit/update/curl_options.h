#pragma once

// The options that the test program sets in libcurl. https_transport_test.cpp records them.

#include <curl/curl.h>

#include <map>

namespace Vantrell {

inline std::map<CURLoption, long> options;  // the last value of each

}  // namespace Vantrell
