// What the content tests share: bags of values, sample stores read from
// memory and their messages, the oracle tables. Scratch folders and the
// outside readers come from tests/mail/mail_test_files.h.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "store/property_bag.h"
#include "store/store_reader.h"
#include "tests/mail/mail_test_files.h"

namespace marrow::test {

using Buf = std::vector<std::uint8_t>;

// A bag of in-memory values, each (id, type, bytes).
PropertyBag Bag(std::initializer_list<std::tuple<std::uint16_t, std::uint16_t, Buf>> values);

// Opens a shared sample from a copy in memory: the reader locks a file it
// opens, and parallel tests read the same samples.
bool OpenSample(StoreReader& reader, const std::string& store);

// Every message node of an open store, by NodeId.
std::map<std::uint32_t, NodeEntry> MessageNodes(StoreReader& reader);

// A message's subnode list and property bag; false when the bag cannot be read.
bool ReadMessage(StoreReader& reader, const NodeEntry& node, SubnodeLists& subnodes,
                 PropertyBag& bag);

// The rows of tests/data/oracle/<name> that have `fields` fields, without the
// header line, each field with its \t \n \r \xNN escapes undone.
std::vector<std::vector<std::string>> OracleRows(const std::string& name, std::size_t fields);

// The SHA-256 of a file's bytes, in lowercase hex.
std::string FileSha256(const std::string& path);

}  // namespace marrow::test
