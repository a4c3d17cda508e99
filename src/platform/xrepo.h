// The controller's XML configuration repository, as a directory of lists.
//
// Every list lives in its own file <root>/etc/corvane/xrepo/<list>.xml
// (TALLYD_XREPO_DIR in base/path.h) whose
// document element is named after the list ("avpap-list" holding "avpap"
// children, "system" holding "internal" and "qpx", ...).
//
// Contract:
// - xGetConfImpl hands out a private copy of one list; changes to it touch
//   nothing on disk until repoSaveCurrent writes it back. Every node pointer
//   taken from a copy stays valid until the copy is released with xFreeConf
//   (or xFree); texts returned by xGetName / xGetAttrString live as long as
//   the node.
// - A missing list file is an absent list (null). A file that does not parse,
//   or whose document element has another name, is logged and is absent too;
//   such a file is never overwritten: a save of that list is refused. The
//   same goes for anything that is not a regular file (a FIFO, a directory,
//   a symbolic link): it is never opened for reading, logged at error level,
//   absent, and never replaced.
// - repoSaveCurrent is atomic and durable: the list is written to a temporary
//   file, synced, renamed over the list and the directory is synced, so a
//   power cut leaves either the old or the new list.
// - Only element nodes count as children; comments and text are skipped.
// - Null arguments are tolerated everywhere (null result, default value or
//   -1), so a caller that did not check a fetch cannot crash here.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace pugi {
struct xml_node_struct;
}

// A node of a fetched list or a detached node made by xNewImpl.
using xnode = pugi::xml_node_struct;
// An iterator over the children of one node (xFindChildrenImpl).
struct xiter;

// Fetches a private copy of the list named path ("avpap-list"). caller and
// line name the calling routine in log lines; flags is unused (pass 0).
// Null when the list is absent or malformed.
xnode *xGetConfImpl(const char *caller, int line, const char *path, int flags);

// Releases a copy from xGetConfImpl (any node of it may be passed). Null is
// ignored.
void xFreeConf(xnode *conf);
// Releases a detached node from xNewImpl that was never linked, or a fetched
// copy like xFreeConf. Null is ignored.
void xFree(xnode *node);

// First element child / next element sibling; null at the end.
xnode *xGetFirstChild(xnode *node);
xnode *xGetNextSibling(xnode *node);
// First element child named name; null if none.
xnode *xGetChild(xnode *node, const char *name);
// Element name ("avpap"); "" for null.
const char *xGetName(xnode *node);

// Iterates the element children of parent named name (every element child
// when name is null). The iterator is heap-allocated; release it with
// xIterFree. Null for a null parent.
xiter *xFindChildrenImpl(xnode *parent, const char *name, int flags);
bool xIterHasNext(const xiter *it);
// The next matching child, null at the end.
xnode *xIterNext(xiter *it);
void xIterFree(xiter *it);

// Attribute readers: def when the node or the attribute is missing. Integers
// are read as decimal text ("12abc" reads 12, "abc" reads 0); booleans are
// true when the text starts with 1, t, T, y or Y.
int32_t xGetAttrInt(xnode *node, const char *name, int32_t def);
const char *xGetAttrString(xnode *node, const char *name, const char *def);
bool xGetAttrBool(xnode *node, const char *name, bool def);

// A new detached node named name; flags unused (pass 0). Null on failure.
// Link it into a list with xLinkChild or release it with xFree.
xnode *xNewImpl(const char *name, int flags);

// Set (add or replace) an attribute. 0, or -1 for null arguments.
int xSetAttr(xnode *node, const char *name, const char *value);
int xSetAttrFormat(xnode *node, const char *name, const char *fmt, ...)
    __attribute__((format(printf, 3, 4)));

// Appends the detached node child (from xNewImpl) as the last child of
// parent and returns the linked node. On success child is consumed (the old
// pointer is gone). Null when either is null, when child is not a detached
// node or when parent lies inside child; the caller then still owns child.
xnode *xLinkChild(xnode *parent, xnode *child);

// Writes the list that subtree belongs to back as list path. 0 on success;
// -1 (logged) when the list's document element is not named path, when the
// file on disk is malformed, or when writing fails (the old file is then
// left as it was).
int repoSaveCurrent(const char *path, xnode *subtree);

// The file that holds list path ("<root>/etc/corvane/xrepo/avpap-list.xml"),
// for log lines that name it.
std::string xrepo_list_path(const char *path);

// Ownership helpers for C++ callers: release a fetched copy or an iterator
// when the scope ends.
struct xconf_free {
    void operator()(xnode *n) const { xFreeConf(n); }
};
struct xiter_free {
    void operator()(xiter *it) const { xIterFree(it); }
};
using xconf_ptr = std::unique_ptr<xnode, xconf_free>;
using xiter_ptr = std::unique_ptr<xiter, xiter_free>;
