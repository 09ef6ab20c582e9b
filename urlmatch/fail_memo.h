// FailMemo: what one lookup has learnt about trie nodes that lead to no rule,
// so that the backtracking search never scans the same input twice.
//
// A node tried from input position p with fresh alternatives either leads to
// a rule (and the lookup ends) or returns to its parent at p; the outcome
// depends only on the node and p. The memo keeps, per node, a position from
// which the node is known to fail at that position and every later one:
// - a '*' that failed from p has failed from every later position too, since
//   its search from p absorbed through them all;
// - a node without a possible rule (itself, its '*' child, its "/ *"
//   grandchild) fails from p on once each child is known to fail from the
//   position it would be tried at (p for a '*' child, p + 1 for others).
// The search skips children known to fail, and a '*' stops absorbing as soon
// as all its children are known to fail. Each node then scans each position
// at most once and a chain of stars unwinds in one pass, so a lookup takes
// O(nodes entered x URL length) steps instead of growing with the URL length
// to the power of the stars in a row.
//
// Thread safety: one memo per thread (ForNewLookup()); reused by every lookup
// of that thread, so a lookup allocates nothing once the table has grown to
// the number of failing nodes a lookup meets.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <limits>
#include <vector>

namespace bexo_url {

class FailMemo {
 public:
  static constexpr int32_t kNever = std::numeric_limits<int32_t>::max();

  // The calling thread's memo, emptied for a new lookup.
  static FailMemo& ForNewLookup();

  // The position from which the node is known to fail in this lookup, or kNever.
  int32_t FailFrom(uint64_t node) const;
  void RecordFailure(uint64_t node, int32_t from);
  bool empty() const { return used_ == 0; }

 private:
  struct Slot {
    uint64_t node;
    uint32_t generation;  // a slot of an older lookup counts as empty
    int32_t fail_from;
  };

  size_t SlotOf(uint64_t node) const;
  void Grow();

  std::vector<Slot> slots_ = std::vector<Slot>(64, Slot{0, 0, kNever});  // a power of two
  uint32_t generation_ = 0;
  size_t used_ = 0;
};

}  // namespace bexo_url
