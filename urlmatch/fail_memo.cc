#include "urlmatch/fail_memo.h"

namespace bexo_url {

FailMemo& FailMemo::ForNewLookup() {
  thread_local FailMemo memo;
  if (++memo.generation_ == 0) {  // wrapped: old stamps would look current
    for (Slot& slot : memo.slots_) slot.generation = 0;
    memo.generation_ = 1;
  }
  memo.used_ = 0;
  return memo;
}

size_t FailMemo::SlotOf(uint64_t node) const {
  const size_t mask = slots_.size() - 1;
  size_t i = static_cast<size_t>((node * 0x9E3779B97F4A7C15ull) >> 40) & mask;
  while (slots_[i].generation == generation_ && slots_[i].node != node) i = (i + 1) & mask;
  return i;
}

int32_t FailMemo::FailFrom(uint64_t node) const {
  const Slot& slot = slots_[SlotOf(node)];
  return slot.generation == generation_ ? slot.fail_from : kNever;
}

void FailMemo::RecordFailure(uint64_t node, int32_t from) {
  Slot* slot = &slots_[SlotOf(node)];
  if (slot->generation != generation_) {
    if (2 * (used_ + 1) > slots_.size()) {
      Grow();
      slot = &slots_[SlotOf(node)];
    }
    *slot = Slot{node, generation_, from};
    ++used_;
  } else if (from < slot->fail_from) {
    slot->fail_from = from;
  }
}

void FailMemo::Grow() {
  std::vector<Slot> old(slots_.size() * 2, Slot{0, 0, kNever});
  old.swap(slots_);
  for (const Slot& slot : old) {
    if (slot.generation == generation_) slots_[SlotOf(slot.node)] = slot;
  }
}

}  // namespace bexo_url
