/**
 * @file
 * Removal of a directory with everything in it.
 */
#ifndef ZEL_TREE_REMOVAL_H
#define ZEL_TREE_REMOVAL_H

#include <string>

/**
 * Removes what stands at a path: a tree of any depth, a file, or a link itself. Links are never
 * followed, also not at the end of the path with a trailing "/". Goes on when something cannot be
 * removed, so that as little as possible stays. Uses a bounded number of descriptors and a bounded
 * stack.
 *
 * Refuses the root directory, "." and "..", and with them every path that leads to the root by its
 * own text.
 *
 * @return true when nothing of it is left
 */
[[nodiscard]] bool RemoveTree(const std::string& path);

#endif
