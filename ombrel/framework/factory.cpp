// SPDX-License-Identifier: MIT
#include "ombrel/framework/factory.h"

#include <mutex>

#include "ombrel/framework/hal.h"

namespace ombrel {
namespace {

bool IsAcceptedHost(const Buffer& buffer, HostTypes accepted) {
    if (buffer.Type() == HOST_BUFFER) return true;
    return buffer.Type() == HOST_WRAPPED_BUFFER && accepted == HostTypes::Any;
}

}  // namespace

Implementation ChooseImplementation(std::initializer_list<BufferArg> buffers) {
    bool allHost = true;
    bool allBoard = true;
    for (const BufferArg& arg : buffers) {
        if (arg.buffer == nullptr) {
            if (arg.presence == Presence::Required) return Implementation::None;
            continue;
        }
        allHost = allHost && IsAcceptedHost(*arg.buffer, arg.accepted);
        allBoard = allBoard && arg.buffer->Type() == MONSTER_BUFFER;
    }
    if (allHost) return Implementation::Software;
    if (allBoard) return Implementation::Board;
    return Implementation::None;
}

void NoteNoBoardBackEnd() {
    static std::once_flag once;
    std::call_once(once, [] {
        aprintf(
            "\nNOTE: board buffers were given, but this build of Ombrel has no board back end; "
            "no agent was made.\n");
    });
}

}  // namespace ombrel
