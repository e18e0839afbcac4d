// SPDX-License-Identifier: Apache-2.0
/* A bounded BER reader for forge's own inspection of other tools' output:
 * every element with where it lies, indefinite lengths and lengths in more
 * octets than needed accepted, every length checked against its parent. */
#include "forge.h"

namespace forge {

namespace {

constexpr int kMaxDepth = 64;     /* CMS nests about 15 deep; a hostile input is cut off */
constexpr size_t kMaxLenOctets = 4;

} // namespace

bool BerRefuse(BerParser *p, size_t at, const char *what)
{
    if (p->why.empty()) {
        p->why = what;
        p->whyAt = at;
    }
    return false;
}

/* Parses one element at `pos`, which must end by `limit`. */
bool ParseBer(BerParser *p, size_t pos, size_t limit, int depth, BerNode *node)
{
    const Bytes &in = p->in;
    if (depth > kMaxDepth) {
        return BerRefuse(p, pos, "nested too deep");
    }
    node->start = pos;
    if (pos >= limit) {
        return BerRefuse(p, pos, "element missing");
    }
    const uint8_t first = in[pos++];
    node->constructed = (first & 0x20) != 0;
    node->tag.assign(1, first);
    if ((first & 0x1F) == 0x1F) { /* tag number in the following octets */
        do {
            if (pos >= limit || node->tag.size() > 5) {
                return BerRefuse(p, node->start, "tag runs past the end");
            }
            node->tag.push_back(in[pos]);
        } while ((in[pos++] & 0x80) != 0);
    }
    if (pos >= limit) {
        return BerRefuse(p, node->start, "length missing");
    }
    const uint8_t lenByte = in[pos++];
    if (lenByte == 0x80) { /* indefinite: elements up to end-of-contents */
        node->indefinite = true;
        if (!node->constructed) {
            return BerRefuse(p, node->start, "indefinite length on a primitive element");
        }
        for (;;) {
            if (pos + 2 <= limit && in[pos] == 0 && in[pos + 1] == 0) {
                node->end = pos + 2;
                return true;
            }
            BerNode child;
            if (!ParseBer(p, pos, limit, depth + 1, &child)) {
                return false;
            }
            pos = child.end;
            node->children.push_back(std::move(child));
        }
    }
    size_t len = lenByte;
    if ((lenByte & 0x80) != 0) {
        const size_t octets = lenByte & 0x7F;
        node->longForm = true;
        if (octets > kMaxLenOctets || octets > limit - pos) {
            return BerRefuse(p, node->start, "length field too long");
        }
        len = 0;
        for (size_t i = 0; i < octets; i++) {
            len = (len << 8) | in[pos++];
        }
    }
    if (len > limit - pos) {
        return BerRefuse(p, node->start, "element runs past its parent");
    }
    node->contentStart = pos;
    node->contentEnd = pos + len;
    node->end = pos + len;
    if (node->constructed) {
        while (pos < node->end) {
            BerNode child;
            if (!ParseBer(p, pos, node->end, depth + 1, &child)) {
                return false;
            }
            pos = child.end;
            node->children.push_back(std::move(child));
        }
    }
    return true;
}


} // namespace forge
