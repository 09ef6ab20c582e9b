// Conversions between the object and the fixed form of a mail request.
#include <string.h>

#include "mailqueue.h"

namespace {

void CopyField(char* field, const char* text) {
  strncpy(field, text, kMailFieldSize - 1);
  field[kMailFieldSize - 1] = '\0';
}

// Appends every string; a failed append drops the list, as dplist_add's
// callers always have (memory exhaustion truncates rather than fails).
dplist* ToDplist(const List<String>& list) {
  dplist* head = nullptr;
  for (auto* node = list.head(); node != nullptr; node = node->next) head = dplist_add(head, node->value.c_str());
  return head;
}

void ToList(dplist* head, List<String>& list) {
  for (; head != nullptr; head = head->next) list.append(String(head->data));
}

}  // namespace

int mailqueue_conv_rtod(MailReq* object, _DMailReq* fixed) {
  mailqueue_free_request(fixed);
  memset(fixed, 0, sizeof *fixed);
  CopyField(fixed->sender, object->sender.c_str());
  CopyField(fixed->subject, object->subject.c_str());
  CopyField(fixed->d_text, object->d_text.c_str());
  fixed->recipients = ToDplist(object->recipients);
  fixed->body = ToDplist(object->body);
  fixed->r_number = object->r_number;
  return 0;
}

int mailqueue_conv_dtor(MailReq* object, _DMailReq* fixed) {
  object->recipients.clear();
  object->body.clear();
  object->sender = fixed->sender;
  ToList(fixed->recipients, object->recipients);
  object->subject = fixed->subject;
  ToList(fixed->body, object->body);
  object->d_text = fixed->d_text;
  object->r_number = fixed->r_number;
  object->extra = fixed->extra;
  return 0;
}

int mailqueue_free_request(_DMailReq* req) {
  dplist_removeall(req->recipients);
  dplist_removeall(req->body);
  req->recipients = nullptr;
  req->body = nullptr;
  return 0;
}

int mailqueue_free(_DMailReq* req) { return mailqueue_free_request(req); }

void dump_mail_req(MailReq*) {}

void dump_mail_dreq(_DMailReq*) {}
