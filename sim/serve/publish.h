// The database server's offer for a simulated appliance (see publish.cpp).
#pragma once
#include <string>

namespace vexosim::serve {

// Publishes under DOCROOT/getSSDsInfo/v7 an index for the appliance's model
// (<model>.json, and index.json) and, in <model>/, a newer copy of each of
// its databases, unless an offer stands there already. Says which drive
// model's compatibility word the newer database changed ("" for none).
std::string publishDatabases(const std::string &root, const std::string &docroot);

// Packs the offer (and a newer database for each expansion unit the
// appliance has one for) as an offline kit of the given version: a package
// archive signed with the appliance's key, made by archiveTool. 0 or 1.
int buildKit(const std::string &root, const std::string &out, int version, const std::string &archiveTool);

} // namespace vexosim::serve
