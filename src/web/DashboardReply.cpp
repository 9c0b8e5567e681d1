#include "web/DashboardReply.hpp"

namespace quorvane::DashboardReply {

void sendJson(httplib::Response& response, const Json& json) {
    response.set_content(json.dump(-1, ' ', false, Json::error_handler_t::replace),
                         "application/json");
}

void sendError(httplib::Response& response, int status, const std::string& reason) {
    response.status = status;
    sendJson(response, Json{{"error", reason}});
}

Json objectBody(const httplib::Request& request) {
    Json body = Json::parse(request.body, nullptr, false);
    return body.is_object() ? body : Json(Json::value_t::discarded);
}

}  // namespace quorvane::DashboardReply
