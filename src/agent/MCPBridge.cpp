#include "agent/MCPBridge.hpp"

#include <errno.h>
#include <unistd.h>

#include <algorithm>

#include "agent/AgentJSON.hpp"
#include "agent/AgentTools.hpp"
#include "platform/FileDescriptor.hpp"

namespace quorvane {

namespace {

using Message = nlohmann::ordered_json;

constexpr std::string_view kMimeType = "application/json";

constexpr std::string_view kInstructions =
    "Quorvane tracks this person's Git work: the repositories under their scan folders, "
    "what they committed, what is uncommitted or unpushed, estimated work sessions, day and "
    "week reports, and how each repository stands against GitHub. Read tools answer at once "
    "and change nothing. Nothing else changes on your word alone: a propose_ tool, or an "
    "apply or git tool called without a confirmationToken, creates a proposal; the person "
    "reviews it and approves it with `quorvane proposals approve ID`; get_proposal_status "
    "then gives you the confirmationToken, and you repeat the same call with it. A token "
    "works once, for that tool and those arguments. Every call is written to an audit log.";

// Compact, and never a throw on text that is not valid UTF-8.
std::string compact(const Message& message) {
    return message.dump(-1, ' ', false, Message::error_handler_t::replace);
}

Message errorReply(const Message& id, int code, const std::string& message) {
    return {{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", message}}}};
}

Message resultReply(const Message& id, Message result) {
    return {{"jsonrpc", "2.0"}, {"id", id}, {"result", std::move(result)}};
}

Message textContent(const std::string& text) {
    return Message::array({{{"type", "text"}, {"text", text}}});
}

// A client's message as JSON, or nothing for bytes that are not one JSON text. A raw
// NUL ends the parser's input early, so "{...}\0junk" would otherwise pass.
std::optional<Message> parseMessage(std::string_view line) {
    if (line.find('\0') != std::string_view::npos) return std::nullopt;
    if (nestedDeeperThan(line, kMaxJsonDepth)) return std::nullopt;
    Message message = Message::parse(line, nullptr, false);
    if (message.is_discarded()) return std::nullopt;
    return message;
}

bool validId(const Message& id) {
    return id.is_string() || id.is_number();
}

// The daemon's reply line as a tool result: a failure keeps its code in front of the
// message so the agent can tell a refusal from a tool that could not do its work.
Message toolResult(const AgentLink::Reply& reply) {
    auto failed = [](const std::string& text) {
        return Message{{"content", textContent(text)}, {"isError", true}};
    };
    if (!reply.line) return failed(reply.problem);
    Message answer = Message::parse(*reply.line, nullptr, false);
    if (!answer.is_object() || !answer.contains("ok") || !answer["ok"].is_boolean()) {
        return failed("Quorvane's daemon sent a reply that is not a tool result.");
    }
    if (answer["ok"].get<bool>()) {
        const Message result = answer.contains("result") ? answer["result"] : Message::object();
        return {{"content", textContent(compact(result))}, {"isError", false}};
    }
    const Message error = answer.value("error", Message::object());
    const std::string code = error.is_object() ? error.value("code", "error") : "error";
    std::string text = code + ": " + (error.is_object() ? error.value("message", "") : "");
    if (code == "confirmation_required") {
        text +=
            " The person approves it with `quorvane proposals approve ID`; get_proposal_status "
            "with that proposalId then gives you the confirmationToken.";
    }
    return failed(text);
}

Message toolAnnotations(const AgentTool& tool) {
    return {{"readOnlyHint", tool.level == AgentPermissionLevel::readOnly}};
}

}  // namespace

MCPBridge::MCPBridge(AgentLink& link, std::string version)
    : link_(link), version_(std::move(version)) {}

std::optional<std::string> MCPBridge::handleLine(std::string_view line) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (std::all_of(line.begin(), line.end(),
                    [](char c) { return c == ' ' || c == '\t' || c == '\r'; })) {
        return std::nullopt;
    }
    std::optional<Message> message = parseMessage(line);
    if (!message) return compact(errorReply(nullptr, kParseError, "Parse error"));

    if (!message->is_array()) {
        std::optional<Message> reply = handleMessage(*message);
        return reply ? std::optional(compact(*reply)) : std::nullopt;
    }
    // A batch, as older clients may send: one reply per request, in one array.
    if (message->empty()) {
        return compact(errorReply(nullptr, kInvalidRequest, "Invalid Request: empty batch"));
    }
    Message replies = Message::array();
    for (const Message& each : *message) {
        if (std::optional<Message> reply = handleMessage(each)) replies.push_back(*reply);
    }
    return replies.empty() ? std::nullopt : std::optional(compact(replies));
}

std::optional<Message> MCPBridge::handleMessage(const Message& message) {
    if (!message.is_object()) {
        return errorReply(nullptr, kInvalidRequest, "Invalid Request: not an object");
    }
    const bool hasId = message.contains("id");
    const Message id = hasId && validId(message["id"]) ? message["id"] : Message(nullptr);
    const bool hasMethod = message.contains("method");
    // A response to a request of ours: the bridge sends none, so there is nothing to do.
    if (!hasMethod && hasId && (message.contains("result") || message.contains("error"))) {
        return std::nullopt;
    }
    if (message.value("jsonrpc", Message()) != "2.0" || !hasMethod ||
        !message["method"].is_string() || (hasId && !validId(message["id"]))) {
        return errorReply(id, kInvalidRequest, "Invalid Request");
    }
    // A notification wants no reply, not even an error.
    if (!hasId) return std::nullopt;
    const Message params = message.value("params", Message::object());
    if (!params.is_object()) {
        return errorReply(id, kInvalidParams, "Invalid params: params must be an object");
    }
    return dispatch(message["method"].get<std::string>(), params, id);
}

MCPBridge::Message MCPBridge::dispatch(const std::string& method, const Message& params,
                                       const Message& id) {
    if (method == "initialize") return initialize(params, id);
    if (method == "ping") return resultReply(id, Message::object());
    if (method == "tools/list") return listTools(id);
    if (method == "tools/call") return callTool(params, id);
    if (method == "resources/list") return listResources(id);
    if (method == "resources/templates/list") {
        return resultReply(id, {{"resourceTemplates", Message::array()}});
    }
    if (method == "resources/read") return readResource(params, id);
    return errorReply(id, kMethodNotFound, "Method not found: " + method);
}

MCPBridge::Message MCPBridge::initialize(const Message& params, const Message& id) {
    std::string_view version = kProtocolVersions.front();
    const Message asked = params.value("protocolVersion", Message());
    if (asked.is_string()) {
        const std::string text = asked.get<std::string>();
        auto known = std::find(kProtocolVersions.begin(), kProtocolVersions.end(), text);
        if (known != kProtocolVersions.end()) version = *known;
    }
    Message result = {
        {"protocolVersion", version},
        {"capabilities",
         {{"tools", {{"listChanged", false}}},
          {"resources", {{"subscribe", false}, {"listChanged", false}}}}},
        {"serverInfo", {{"name", "quorvane"}, {"title", "Quorvane"}, {"version", version_}}},
        {"instructions", kInstructions}};
    return resultReply(id, std::move(result));
}

MCPBridge::Message MCPBridge::listTools(const Message& id) const {
    Message tools = Message::array();
    for (const AgentTool& tool : AgentTools::all()) {
        Message schema = Message::parse(tool.inputSchema, nullptr, false);
        if (!schema.is_object()) schema = {{"type", "object"}};
        tools.push_back({{"name", tool.name},
                         {"title", tool.title},
                         {"description", tool.description},
                         {"inputSchema", std::move(schema)},
                         {"annotations", toolAnnotations(tool)}});
    }
    return resultReply(id, {{"tools", std::move(tools)}});
}

MCPBridge::Message MCPBridge::listResources(const Message& id) const {
    Message resources = Message::array();
    for (const AgentResource& resource : AgentTools::resources()) {
        resources.push_back({{"uri", resource.uri},
                             {"name", resource.name},
                             {"title", resource.title},
                             {"description", resource.description},
                             {"mimeType", kMimeType}});
    }
    return resultReply(id, {{"resources", std::move(resources)}});
}

MCPBridge::Message MCPBridge::callTool(const Message& params, const Message& id) {
    const Message name = params.value("name", Message());
    if (!name.is_string()) {
        return errorReply(id, kInvalidParams, "Invalid params: `name` must be a tool name");
    }
    const std::string tool = name.get<std::string>();
    if (AgentTools::find(tool) == nullptr) {
        return errorReply(id, kInvalidParams,
                          "Unknown tool: " + tool + " (tools/list names every tool)");
    }
    const Message arguments = params.value("arguments", Message::object());
    if (!arguments.is_object()) {
        return errorReply(id, kInvalidParams, "Invalid params: `arguments` must be an object");
    }
    const Message request = {{"tool", tool}, {"args", arguments}};
    return resultReply(id, toolResult(link_.exchange(compact(request))));
}

MCPBridge::Message MCPBridge::readResource(const Message& params, const Message& id) {
    const Message uri = params.value("uri", Message());
    if (!uri.is_string()) {
        return errorReply(id, kInvalidParams, "Invalid params: `uri` must be a text");
    }
    const Message request = {{"tool", "resources/read"}, {"args", {{"uri", uri}}}};
    const AgentLink::Reply reply = link_.exchange(compact(request));
    if (!reply.line) return errorReply(id, kInternalError, reply.problem);
    const Message answer = Message::parse(*reply.line, nullptr, false);
    if (!answer.is_object() || !answer.value("ok", Message()).is_boolean()) {
        return errorReply(id, kInternalError,
                          "Quorvane's daemon sent a reply that is not a resource.");
    }
    if (answer["ok"].get<bool>()) {
        const Message result = answer.contains("result") ? answer["result"] : Message::object();
        Message content = {{"uri", uri}, {"mimeType", kMimeType}, {"text", compact(result)}};
        return resultReply(id, {{"contents", Message::array({std::move(content)})}});
    }
    const Message error = answer.value("error", Message::object());
    const std::string code = error.is_object() ? error.value("code", "error") : "error";
    const std::string text = error.is_object() ? error.value("message", "") : "";
    Message refused = errorReply(id, code == "not_found" ? kResourceNotFound : kInternalError,
                                 code + ": " + text);
    refused["error"]["data"] = {{"uri", uri}};
    return refused;
}

int MCPBridge::serve(int inFd, int outFd) {
    auto writeLine = [outFd](std::string bytes) {
        bytes.push_back('\n');
        return writeAll(outFd, bytes);
    };
    auto tooLong = [] {
        return compact(errorReply(nullptr, kInvalidRequest, "Invalid Request: message over 4 MiB"));
    };
    std::string pending;
    bool discarding = false;  // inside a message that was too long, until its LF
    char chunk[64 * 1024];
    for (;;) {
        ssize_t got = ::read(inFd, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return 0;
        pending.append(chunk, static_cast<size_t>(got));
        size_t start = 0;
        for (size_t end; (end = pending.find('\n', start)) != std::string::npos; start = end + 1) {
            if (discarding) {
                discarding = false;
                continue;
            }
            std::string_view line(pending.data() + start, end - start);
            std::optional<std::string> reply =
                line.size() > kMaxMessageBytes ? tooLong() : handleLine(line);
            if (reply && !writeLine(std::move(*reply))) return 1;
        }
        pending.erase(0, start);
        if (pending.size() > kMaxMessageBytes) {
            pending.clear();
            if (!discarding) {
                discarding = true;
                if (!writeLine(tooLong())) return 1;
            }
        }
    }
}

}  // namespace quorvane
