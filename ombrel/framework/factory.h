// SPDX-License-Identifier: MIT
// How every XFact chooses an implementation from the buffers it is given:
//   all host buffers (of the types the family accepts in that role)  -> the software agent;
//   all board buffers                                                 -> the board agent;
//   a mix, or a type the role does not accept                         -> null.
// A null buffer is neither a host nor a board buffer, so a family given null for a buffer it needs returns
// null (after its own assertion has reported it): no agent is made that could only fail. Only a buffer the
// family declares optional (source B of the arithmetic factory) may be null; it then takes no part in the
// choice. No board back end is built in yet: a board choice returns null and says so once.
// Allocation failure, in the agent or anything it builds, returns null; nothing throws out of a factory.
#pragma once
#include <initializer_list>
#include <new>
#include <utility>

#include "ombrel/framework/buffer.h"
#include "ombrel/framework/geometry.h"

namespace ombrel {

// Which host buffer types a family accepts for a buffer argument.
enum class HostTypes { Any, OwnedOnly };

enum class Presence { Required, Optional };

struct BufferArg {
    const Buffer* buffer;
    HostTypes accepted = HostTypes::Any;
    Presence presence = Presence::Required;
};

enum class Implementation { Software, Board, None };

Implementation ChooseImplementation(std::initializer_list<BufferArg> buffers);

// Says once per process, through aprintf, that board buffers cannot be served by this build.
void NoteNoBoardBackEnd();

// Constructs the software agent when every buffer is a host buffer the family accepts; null otherwise.
template <class SoftwareAgent, class... Args>
SoftwareAgent* MakeAgent(std::initializer_list<BufferArg> buffers, Args&&... args) {
    switch (ChooseImplementation(buffers)) {
        case Implementation::Software:
            try {
                return new (std::nothrow) SoftwareAgent(std::forward<Args>(args)...);
            } catch (const std::bad_alloc&) {
                return nullptr;
            }
        case Implementation::Board:
            NoteNoBoardBackEnd();
            return nullptr;
        case Implementation::None:
            break;
    }
    return nullptr;
}

// The rectangle of the four-int factory forms.
inline Rect RectFromInts(int left, int top, int right, int bottom) {
    return Rect{left, top, right, bottom};
}

}  // namespace ombrel
