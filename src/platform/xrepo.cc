#include "platform/xrepo.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "base/log.h"
#include "base/path.h"
#include "platform/xrepo_file.h"

namespace {

// One document handed out: a fetched list or a detached new node. The
// repository keeps them until they are released, so that a plain node
// pointer is enough to find (and free) the document it belongs to.
struct xrepo_copy {
    pugi::xml_document doc;
    bool detached = false;
};

std::vector<std::unique_ptr<xrepo_copy>> &copies() {
    static std::vector<std::unique_ptr<xrepo_copy>> v;
    return v;
}

pugi::xml_node wrap(xnode *n) {
    return pugi::xml_node(n);
}

xnode *unwrap(pugi::xml_node n) {
    return n ? n.internal_object() : nullptr;
}

auto find_copy(xnode *n) {
    auto &v = copies();
    if (!n) return v.end();
    xnode *root = wrap(n).root().internal_object();
    return std::find_if(v.begin(), v.end(),
                        [root](const auto &c) { return c->doc.internal_object() == root; });
}

void release(xnode *n) {
    auto it = find_copy(n);
    if (it != copies().end()) copies().erase(it);
}

// A list name is one plain file name: nothing that could leave the directory.
bool list_name_ok(const char *path) {
    return path && path[0] != '\0' && path[0] != '.' && !std::strchr(path, '/');
}

bool is_element(pugi::xml_node n) {
    return n.type() == pugi::node_element;
}

pugi::xml_node next_element(pugi::xml_node n, const char *name) {
    for (; n; n = n.next_sibling())
        if (is_element(n) && (!name || std::strcmp(n.name(), name) == 0)) return n;
    return {};
}

struct string_writer : pugi::xml_writer {
    std::string out;
    void write(const void *data, size_t size) override {
        out.append(static_cast<const char *>(data), size);
    }
};

}  // namespace

std::string xrepo_list_path(const char *path) {
    return tallyd_path(TALLYD_XREPO_DIR) + "/" + (path ? path : "") + ".xml";
}

struct xiter {
    pugi::xml_node next;
    std::string name;
    bool any;
};

xnode *xGetConfImpl(const char *caller, int line, const char *path, int /*flags*/) {
    if (!list_name_ok(path)) return nullptr;
    auto copy = std::make_unique<xrepo_copy>();
    std::string why;
    switch (xrepo_file_load(xrepo_list_path(path), path, copy->doc, &why)) {
        case xrepo_load_result::missing:
            return nullptr;
        case xrepo_load_result::malformed:
            tallyd_log(LOG_ERR, "tallyd, %s:%d: repository list %s is malformed (%s), ignored\n",
                       caller ? caller : "", line, path, why.c_str());
            return nullptr;
        case xrepo_load_result::not_regular:
            tallyd_log(LOG_ERR,
                       "tallyd, %s:%d: repository list %s is not a regular file, ignored\n",
                       caller ? caller : "", line, xrepo_list_path(path).c_str());
            return nullptr;
        case xrepo_load_result::ok:
            break;
    }
    xnode *list = unwrap(copy->doc.document_element());
    copies().push_back(std::move(copy));
    return list;
}

void xFreeConf(xnode *conf) {
    release(conf);
}
void xFree(xnode *node) {
    release(node);
}

xnode *xGetFirstChild(xnode *node) {
    return node ? unwrap(next_element(wrap(node).first_child(), nullptr)) : nullptr;
}

xnode *xGetNextSibling(xnode *node) {
    return node ? unwrap(next_element(wrap(node).next_sibling(), nullptr)) : nullptr;
}

xnode *xGetChild(xnode *node, const char *name) {
    return node && name ? unwrap(next_element(wrap(node).first_child(), name)) : nullptr;
}

const char *xGetName(xnode *node) {
    return node ? wrap(node).name() : "";
}

xiter *xFindChildrenImpl(xnode *parent, const char *name, int /*flags*/) {
    if (!parent) return nullptr;
    auto *it = new xiter{{}, name ? name : "", name == nullptr};
    it->next = next_element(wrap(parent).first_child(), it->any ? nullptr : it->name.c_str());
    return it;
}

bool xIterHasNext(const xiter *it) {
    return it && it->next;
}

xnode *xIterNext(xiter *it) {
    if (!it || !it->next) return nullptr;
    pugi::xml_node cur = it->next;
    it->next = next_element(cur.next_sibling(), it->any ? nullptr : it->name.c_str());
    return unwrap(cur);
}

void xIterFree(xiter *it) {
    delete it;
}

int32_t xGetAttrInt(xnode *node, const char *name, int32_t def) {
    if (!node || !name) return def;
    pugi::xml_attribute a = wrap(node).attribute(name);
    return a ? a.as_int(def) : def;
}

const char *xGetAttrString(xnode *node, const char *name, const char *def) {
    if (!node || !name) return def;
    pugi::xml_attribute a = wrap(node).attribute(name);
    return a ? a.value() : def;
}

bool xGetAttrBool(xnode *node, const char *name, bool def) {
    if (!node || !name) return def;
    pugi::xml_attribute a = wrap(node).attribute(name);
    return a ? a.as_bool(def) : def;
}

xnode *xNewImpl(const char *name, int /*flags*/) {
    if (!name || !name[0]) return nullptr;
    auto copy = std::make_unique<xrepo_copy>();
    copy->detached = true;
    pugi::xml_node n = copy->doc.append_child(name);
    if (!n) return nullptr;
    copies().push_back(std::move(copy));
    return unwrap(n);
}

int xSetAttr(xnode *node, const char *name, const char *value) {
    if (!node || !name || !name[0] || !value) return -1;
    pugi::xml_node n = wrap(node);
    pugi::xml_attribute a = n.attribute(name);
    if (!a) a = n.append_attribute(name);
    return a && a.set_value(value) ? 0 : -1;
}

int xSetAttrFormat(xnode *node, const char *name, const char *fmt, ...) {
    if (!fmt) return -1;
    char small[64];
    va_list ap;
    va_start(ap, fmt);
    int n = std::vsnprintf(small, sizeof small, fmt, ap);
    va_end(ap);
    if (n < 0) return -1;
    if (static_cast<size_t>(n) < sizeof small) return xSetAttr(node, name, small);
    std::string big(static_cast<size_t>(n) + 1, '\0');
    va_start(ap, fmt);
    std::vsnprintf(big.data(), big.size(), fmt, ap);
    va_end(ap);
    return xSetAttr(node, name, big.c_str());
}

xnode *xLinkChild(xnode *parent, xnode *child) {
    if (!parent || !child) return nullptr;
    auto it = find_copy(child);
    if (it == copies().end() || !(*it)->detached ||
        (*it)->doc.document_element().internal_object() != child || find_copy(parent) == it)
        return nullptr;
    pugi::xml_node linked = wrap(parent).append_copy(wrap(child));
    if (!linked) return nullptr;
    copies().erase(it);
    return unwrap(linked);
}

int repoSaveCurrent(const char *path, xnode *subtree) {
    auto it = find_copy(subtree);
    if (!list_name_ok(path) || it == copies().end()) return -1;
    const pugi::xml_document &doc = (*it)->doc;
    if (std::strcmp(doc.document_element().name(), path) != 0) {
        tallyd_log(LOG_ERR, "tallyd, repository list %s not saved: it holds <%s>\n", path,
                   doc.document_element().name());
        return -1;
    }
    std::string file = xrepo_list_path(path);
    pugi::xml_document on_disk;
    switch (xrepo_file_load(file, path, on_disk)) {
        case xrepo_load_result::malformed:
            tallyd_log(LOG_ERR, "tallyd, repository list %s is malformed, not overwritten\n", path);
            return -1;
        case xrepo_load_result::not_regular:
            // Replacing it by a list of our own would start its ids again
            // from nothing while the tables still hold the old ones.
            tallyd_log(LOG_ERR, "tallyd, repository list %s is not a regular file, not replaced\n",
                       file.c_str());
            return -1;
        default:
            break;
    }
    string_writer w;
    doc.save(w, "  ");
    std::string why;
    if (xrepo_file_replace(file, w.out, &why) != 0) {
        tallyd_log(LOG_ERR, "tallyd, failed to save repository list %s: %s\n", path, why.c_str());
        return -1;
    }
    return 0;
}
