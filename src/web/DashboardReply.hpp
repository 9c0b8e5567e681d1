#pragma once

#include <httplib.h>

#include <string>

#include "records/JsonCodec.hpp"

// How every answer of the dashboard's API is written, so that each screen's routes
// answer and refuse alike.
namespace quorvane::DashboardReply {

void sendJson(httplib::Response& response, const Json& json);
// Answers `status` with the reason in the page's usual {"error": ...}.
void sendError(httplib::Response& response, int status, const std::string& reason);
// The request's body as a JSON object, or a discarded value when it is not one.
Json objectBody(const httplib::Request& request);

}  // namespace quorvane::DashboardReply
