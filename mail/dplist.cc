// dplist: the string list inside a fixed-form mail request.
#include <stdlib.h>
#include <string.h>

#include "mailqueue.h"

dplist* dplist_add(dplist* head, const char* s) {
  dplist* node = static_cast<dplist*>(malloc(sizeof(dplist)));
  if (node == nullptr) return nullptr;
  node->data = strdup(s);
  if (node->data == nullptr) {
    free(node);
    return nullptr;
  }
  node->next = nullptr;
  node->last = node;
  if (head == nullptr) return node;
  head->last->next = node;
  head->last = node;
  return head;
}

int dplist_removeall(dplist* head) {
  while (head != nullptr) {
    dplist* next = head->next;
    free(head->data);
    free(head);
    head = next;
  }
  return 0;
}

int dplist_get_nelem(dplist* head) {
  int count = 0;
  for (; head != nullptr; head = head->next) ++count;
  return count;
}

char* dplist_get_elem(dplist* head, unsigned i) {
  for (; head != nullptr; head = head->next, --i) {
    if (i == 0) return head->data;
  }
  return nullptr;
}
