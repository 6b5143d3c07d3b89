/**
 * @file
 * The end of a thumb file that another process left, perhaps by dying.
 */
#ifndef ZEL_THUMB_FILE_END_H
#define ZEL_THUMB_FILE_END_H

#include "util/file_descriptor.h"

/**
 * Makes sure that a record appended to the file will be read: cuts off the zero bytes at its end,
 * and puts the end of a record behind a part of one, which would swallow the next record otherwise.
 * @return false when that cannot be made sure of
 */
[[nodiscard]] bool EndTornRecord(CZELFileDescriptor& file);

#endif
