// The picture as a page: one file that needs no other, and no network.
#pragma once

#include "client/picture/Picture.h"

#include <ostream>

namespace vdk {

// The stacks are packed as numbers of 7 bits a byte, deflated and in base64; all texts are JSON,
// in which no tag can begin. web/ has what reads them.
void writePage(std::ostream& out, const Picture& picture);

} // namespace vdk
