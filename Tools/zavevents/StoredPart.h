#pragma once

#include "Private/Database/FMDatabase.h"
#include "Private/Model/Synchronization/ZAVEventContent.h"

namespace zavevents {

/// Readies a part that was read from the database for being written back: what reading it into the record has
/// lost of its row is restored, the fraction of its expiration.
/// @param replacesURL whether the part has got another URL, and `replacesFile` another file, since it was
/// read.
/// @throws ToolError when writing the part back would lose a stored URL or path that is none.
void keepStoredFields(zav::FMDatabase& database, zav::ZAVEventContent& part, bool replacesURL,
                      bool replacesFile);

}  // namespace zavevents
