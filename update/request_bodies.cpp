#include "update/request_bodies.h"

#include "json/json_serializer.h"

namespace Vantrell {

std::string JsonQuoted(const std::string& text) { return "\"" + EscapeJsonString(text) + "\""; }

std::string BuildCheckRequest(const std::string& ring, const std::string& component,
                              const std::string& currentVersion,
                              const std::string& driverFingerprint, const std::string& osBuild) {
  return "{\"ring\":" + JsonQuoted(ring) +                             //
         ",\"component\":" + JsonQuoted(component) +                   //
         ",\"current_version\":" + JsonQuoted(currentVersion) +        //
         ",\"driver_fingerprint\":" + JsonQuoted(driverFingerprint) +  //
         ",\"os_build\":" + JsonQuoted(osBuild) + "}";
}

std::string AddInstallId(std::string request, const std::string& installId) {
  request.insert(request.size() - 1, ",\"install_id\":\"" + installId + "\"");
  return request;
}

std::string BuildReportRequest(const std::string& fromVersion, const std::string& toVersion,
                               const std::string& result, const std::string& detail) {
  return "{\"from_version\":" + JsonQuoted(fromVersion) +  //
         ",\"to_version\":" + JsonQuoted(toVersion) +      //
         ",\"result\":" + JsonQuoted(result) +             //
         ",\"detail\":" + JsonQuoted(detail) + "}";
}

}  // namespace Vantrell
