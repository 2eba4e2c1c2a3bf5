// The largest models the graph library accepts. Each limit is checked before the memory it
// bounds is taken, so a file that exceeds one is refused with a log line instead of exhausting
// memory.
#ifndef TOV_GRAPH_MODEL_LIMITS_H
#define TOV_GRAPH_MODEL_LIMITS_H

#include <cstddef>
#include <cstdint>

namespace tov {

// A serialised model file: any size the disk holds. The file is mapped, not read, and a
// tensor's bytes are located on the wire and referred to, never parsed as one protobuf message,
// so neither protobuf's 2 GiB message limit nor memory bounds the file or one tensor. What is
// decoded into memory stays bounded by the limits below.
constexpr uint64_t kMaxModelBytes = UINT64_MAX / 2;

// One op of a graph, its tensor bytes excepted: protobuf's own limit for one message, 2 GiB
// less one byte, within which protobuf's parser checks the op's varints, lengths and strings.
constexpr size_t kMaxOpBytes = 2147483647;

// Nodes of a model's graph. A node costs about 2 KB in memory once converted, so the largest
// graph accepted needs about 8 GB; the largest real networks have a few hundred thousand nodes.
constexpr size_t kMaxGraphNodes = 4000000;

// Bytes of a node's name, its type, one input reference or an attribute's name. String
// attribute values are bounded only by the size of the model.
constexpr size_t kMaxNameBytes = 65536;

// Dimensions of a shape. The graph stores any number (eight inline), but no real model comes
// near this, and it is numpy's own limit, so every weight can be shown as an array.
constexpr size_t kMaxShapeRank = 32;

}  // namespace tov

#endif
