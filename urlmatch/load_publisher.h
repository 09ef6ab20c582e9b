// One load of a rule store from any source (a rule list file, a database
// list): the rules go to the store's load target, which is published on every
// way out of the load.
#pragma once

#include "src/API_legacy/include/url_rule_serialization_io"

// A load target for the life of one load, published on every way out: what
// was added before a failure or an exception stays, as a load in place would
// leave it.
class LoadPublisher {
 public:
  LoadPublisher(url_rule_serialization_io& store, bool clear_first)
      : store_(store), target_(store._begin_load(!clear_first)) {}
  ~LoadPublisher() { store_._publish_load(target_); }
  url_rule_serialization_io& target() { return *target_; }
  LoadPublisher(const LoadPublisher&) = delete;
  LoadPublisher& operator=(const LoadPublisher&) = delete;

 private:
  url_rule_serialization_io& store_;
  url_rule_serialization_io* target_;
};
