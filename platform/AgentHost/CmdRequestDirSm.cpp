#include "platform/AgentHost/CmdRequestDirSm.h"

#include <exception>
#include <utility>

#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("CmdRequestDirSm");

namespace AgentHost {

void CmdRequestDirSm::agentCommandCallbackIs(const std::string& command, CommandCallback callback) {
    agentDeferredCommandCallbackIs(command,
                                   [callback = std::move(callback)](const CommandRequest& request,
                                                                    const CommandAnswer& answer) {
                                       answer(callback(request));
                                   });
}

void CmdRequestDirSm::agentDeferredCommandCallbackIs(const std::string& command,
                                                     DeferredCommandCallback callback) {
    callbacks_[command] = std::move(callback);
}

void CmdRequestDirSm::agentCommandCallbackWithHeartbeatIs(const std::string& command,
                                                          Vel::Ref<AsyncCommandCallback> callback) {
    callbacks_[command] = std::move(callback);
}

void CmdRequestDirSm::agentCommandCallbackDel(const std::string& command) {
    callbacks_.erase(command);
}

Vel::Ref<AsyncShowCommandInstanceSm> CmdRequestDirSm::requestIs(const CommandRequest& request,
                                                                const CommandAnswer& answer) {
    TRACE9("command {}", request.command);
    const auto it = callbacks_.find(request.command);
    if (it == callbacks_.end()) {
        answer({{},
                "no command '" + request.command + "'" +
                    (absence_.empty() ? "" : " now: " + absence_)});
        return nullptr;
    }
    const Callback callback = it->second;  // it may register commands itself
    try {
        if (const auto* async = std::get_if<Vel::Ref<AsyncCommandCallback>>(&callback)) {
            return (*async)->createInstanceSm(request);
        }
        std::get<DeferredCommandCallback>(callback)(request, answer);
    } catch (const std::exception& error) {
        TRACE5("command {} threw: {}", request.command, error.what());
        answer({{}, request.command + ": " + error.what()});
    }
    return nullptr;
}

std::vector<std::string> CmdRequestDirSm::commands() const {
    std::vector<std::string> result;
    result.reserve(callbacks_.size());
    for (const auto& [name, callback] : callbacks_) { result.push_back(name); }
    return result;
}

}  // namespace AgentHost
