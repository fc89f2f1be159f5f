#include "bench/w1_json.h"

#include <nlohmann/json.hpp>

namespace w1 {

std::string jsonLayout() {
  return R"({
  "maxImageSize": 16777216,
  "partitions": [{"number": 1, "blocks": [
    {"name": "ChannelBank", "kovType": "0x0031", "multiInstance": true, "maxDataSize": 322,
     "fields": [
      {"name": "count", "type": "number", "bits": 16, "byteOffset": 0},
      {"name": "channels", "type": "list", "format": "contiguous", "byteOffset": 2,
       "maxEntries": 16, "entryBits": 160, "quantity": {"field": "count"},
       "entry": [
         {"name": "rx_freq", "type": "number", "bits": 32, "byteOffset": 0},
         {"name": "tx_freq", "type": "number", "bits": 32, "byteOffset": 4},
         {"name": "power", "type": "number", "bits": 3, "byteOffset": 8, "msbStart": 7},
         {"name": "wide", "type": "number", "bits": 1, "byteOffset": 8, "msbStart": 4},
         {"name": "scan", "type": "number", "bits": 1, "byteOffset": 8, "msbStart": 3},
         {"name": "talkaround", "type": "number", "bits": 1, "byteOffset": 8, "msbStart": 2},
         {"name": "reserved", "type": "number", "bits": 2, "byteOffset": 8, "msbStart": 1},
         {"name": "color_code", "type": "number", "bits": 4, "byteOffset": 9, "msbStart": 7},
         {"name": "talkgroup", "type": "number", "bits": 20, "byteOffset": 9, "msbStart": 3},
         {"name": "name", "type": "string", "chars": 8, "byteOffset": 12}]}]}]}]
})";
}

std::string jsonValues(const std::vector<Bank>& banks) {
  nlohmann::ordered_json instances = nlohmann::ordered_json::array();
  for (const Bank& bank : banks) {
    nlohmann::ordered_json channels = nlohmann::ordered_json::array();
    for (const Channel& c : bank.entries) {
      std::string padded = c.name;
      padded.resize(8, ' ');
      channels.push_back({{"rx_freq", c.rxFreq},
                          {"tx_freq", c.txFreq},
                          {"power", c.power},
                          {"wide", c.wide ? 1 : 0},
                          {"scan", c.scan ? 1 : 0},
                          {"talkaround", c.talkaround ? 1 : 0},
                          {"reserved", 0},
                          {"color_code", c.colorCode},
                          {"talkgroup", c.talkgroup},
                          {"name", padded}});
    }
    instances.push_back({{"channels", std::move(channels)}});
  }
  nlohmann::ordered_json values;
  values["ChannelBank"] = std::move(instances);
  return values.dump(2) + "\n";
}

}  // namespace w1
