// bexo mail: queue notification mail and look at the spool directory as the
// mail-sending daemon sees it.
#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <list>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "PackageCoreDump.h"
#include "PrivateProfile.h"
#include "UxResBundle.h"
#include "command.h"
#include "input_text.h"
#include "mail_cnvt.h"
#include "mailqueue.h"
#include "product_path.h"

namespace {

constexpr char kUsage[] =
    "usage: bexo mail put --dir DIR --from ADDR --to ADDR[,ADDR...] --subject TEXT [--attach FILE]... [BODY|-]\n"
    "                                queue a mail (BODY lines from the argument or stdin)\n"
    "       bexo mail list DIR       queued mails: file, sender, recipients, subject, size, lock\n"
    "       bexo mail show FILE      a spool file as the RFC 5322 message the sender sends\n"
    "       bexo mail notify --ini INI --node NODE [--bundle NAME] [ARG...]\n"
    "                                queue a notification: tok_subject and tok_body of NODE in\n"
    "                                bundle NAME (default daemon), in the configured language, with\n"
    "                                {0}, {1}, ... filled by the ARGs; mail settings from INI";

int Usage() { return CommandError(kExitUsage, kUsage); }

std::set<std::string> SpoolNames(const std::string& dir) {
  std::set<std::string> names;
  DIR* d = opendir(dir.c_str());
  if (d == nullptr) return names;
  while (dirent* e = readdir(d)) {
    if (e->d_name[0] != '.' && strncmp(e->d_name, "LOCK.", 5) != 0) names.insert(e->d_name);
  }
  closedir(d);
  return names;
}

// Prints the spool files of `dir` that are not in `before`; false when none.
bool PrintNewSpoolFiles(const std::string& dir, const std::set<std::string>& before) {
  bool any = false;
  for (const auto& name : SpoolNames(dir)) {
    if (before.count(name)) continue;
    printf("%s/%s\n", dir.c_str(), name.c_str());
    any = true;
  }
  return any;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

int Put(int argc, char** argv) {
  std::string dir, from, to, subject;
  const char* body_arg = nullptr;
  std::vector<std::string> attachments;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    bool has_value = i + 1 < argc;
    if (arg == "--dir" && has_value) {
      dir = argv[++i];
    } else if (arg == "--from" && has_value) {
      from = argv[++i];
    } else if (arg == "--to" && has_value) {
      to = argv[++i];
    } else if (arg == "--subject" && has_value) {
      subject = argv[++i];
    } else if (arg == "--attach" && has_value) {
      attachments.push_back(argv[++i]);
    } else if (body_arg == nullptr && (arg == "-" || arg.compare(0, 2, "--") != 0)) {
      body_arg = argv[i];
    } else {
      return Usage();
    }
  }
  if (dir.empty() || from.empty() || to.empty()) return Usage();
  std::string body;
  if (body_arg != nullptr && strcmp(body_arg, "-") == 0) {
    if (!ReadInputText("-", &body)) return CommandError(kExitFailure, "cannot read stdin");
  } else if (body_arg != nullptr) {
    body = body_arg;
  }
  for (const auto& file : attachments) {
    struct stat st;
    if (stat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
      return CommandError(kExitFailure, "cannot read attachment " + file);
    }
  }

  _DMailReq req = {};
  snprintf(req.sender, sizeof req.sender, "%s", from.c_str());
  snprintf(req.subject, sizeof req.subject, "%s", subject.c_str());
  std::istringstream recipients(to);
  for (std::string item; std::getline(recipients, item, ',');) {
    if (!item.empty()) req.recipients = dplist_add(req.recipients, item.c_str());
  }
  for (const auto& line : Lines(body)) req.body = dplist_add(req.body, line.c_str());

  std::set<std::string> before = SpoolNames(dir);
  int rc;
  if (attachments.empty()) {
    rc = mailqueue_put(&req, &dir[0]);
  } else {
    std::vector<char*> files, names;
    for (auto& file : attachments) {
      files.push_back(&file[0]);
      names.push_back(get_fn(&file[0]));
    }
    files.push_back(nullptr);
    rc = mailqueue_put_with_files(&req, &dir[0], files.data(), names.data());
  }
  mailqueue_free(&req);
  if (rc != 0) return CommandError(kExitFailure, "could not queue the mail in " + dir);
  PrintNewSpoolFiles(dir, before);
  return kExitOk;
}

struct SpoolFile {
  std::string from;
  std::vector<std::string> to;
  std::string subject;
  bool mime = false;
  std::vector<std::string> body;
};

bool ParseSpoolFile(const std::string& path, SpoolFile* mail) {
  std::string text;
  if (!ReadInputText(path.c_str(), &text)) return false;
  for (const auto& line : Lines(text)) {
    if (line.size() < 2 || line[1] != ' ') continue;
    std::string value = line.substr(2);
    switch (line[0]) {
      case 'F':
        mail->from = value;
        break;
      case 'T':
        mail->to.push_back(value);
        break;
      case 'S':
        mail->subject = value;
        break;
      case 'M':
        mail->mime = true;
        break;
      case 'B':
        mail->body.push_back(value);
        break;
    }
  }
  return true;
}

std::string Joined(const std::vector<std::string>& items, const char* separator) {
  std::string out;
  for (const auto& item : items) out += (out.empty() ? "" : separator) + item;
  return out;
}

int List(const std::string& dir) {
  DIR* d = opendir(dir.c_str());
  if (d == nullptr) return CommandError(kExitFailure, "cannot read " + dir);
  closedir(d);
  for (const auto& name : SpoolNames(dir)) {
    std::string path = dir + "/" + name;
    struct stat st, lock;
    SpoolFile mail;
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode) || !ParseSpoolFile(path, &mail)) continue;
    std::string state = "free";
    if (stat((dir + "/LOCK." + name).c_str(), &lock) == 0) {
      state = "locked " + std::to_string(static_cast<long long>(time(nullptr) - lock.st_mtime)) + "s";
    }
    printf("%s\t%s\t%s\t%s\t%lld\t%s\n", name.c_str(), mail.from.c_str(), Joined(mail.to, ",").c_str(),
           mail.subject.c_str(), static_cast<long long>(st.st_size), state.c_str());
  }
  return kExitOk;
}

// A header value: as it is when plain ASCII, else UTF-8 encoded words of at
// most 75 characters (45 bytes each, cut between characters), folded.
std::string HeaderValue(const std::string& text) {
  constexpr size_t kWordBytes = 45;
  bool ascii = std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  if (ascii) return text;
  std::string value;
  for (size_t start = 0; start < text.size();) {
    size_t end = std::min(start + kWordBytes, text.size());
    while (end < text.size() && end > start + 1 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) --end;
    char* encoded = nullptr;
    if (ConvertMail(text.substr(start, end - start).c_str(), "UTF-8", &encoded, false) != 0) return text;
    value += (value.empty() ? "" : "\r\n ") + std::string("=?UTF-8?B?") + encoded + "?=";
    free(encoded);
    start = end;
  }
  return value;
}

int Show(const std::string& path) {
  SpoolFile mail;
  if (!ParseSpoolFile(path, &mail)) return CommandError(kExitFailure, "cannot read " + path);
  printf("From: %s\r\nTo: %s\r\nSubject: %s\r\n", mail.from.c_str(), Joined(mail.to, ", ").c_str(),
         HeaderValue(mail.subject).c_str());
  // A multipart body brings its own MIME header lines.
  if (!mail.mime) printf("MIME-Version: 1.0\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n");
  for (const auto& line : mail.body) printf("%s\r\n", line.c_str());
  return kExitOk;
}

int Notify(int argc, char** argv) {
  std::string ini, node, bundle_name = "daemon";
  std::vector<icu::Formattable> arguments;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--ini" && i + 1 < argc) {
      ini = argv[++i];
    } else if (arg == "--node" && i + 1 < argc) {
      node = argv[++i];
    } else if (arg == "--bundle" && i + 1 < argc) {
      bundle_name = argv[++i];
    } else if (arg.compare(0, 2, "--") == 0) {
      return Usage();
    } else {
      arguments.emplace_back();
      if (UxResBundle::getFormattable(argv[i], &arguments.back()) != 0) return Usage();
    }
  }
  if (ini.empty() || node.empty()) return Usage();
  char lang[16];
  GetPrivateProfileString("Common", "lang", "en", lang, sizeof lang,
                          bexo::ProductPath("/etc/kvelo/morvane.ini").c_str());
  std::string path = bexo::ProductPath(bexo::kResourceBundleDirectory) + "/" + bundle_name;
  UxResBundle bundle(path.c_str(), lang);
  char subject[UxResBundle::kUTF8OutputSize], body[UxResBundle::kUTF8OutputSize];
  unsigned count = static_cast<unsigned>(arguments.size());
  if (!bundle.getFormattedUTF8String(node.c_str(), "tok_subject", arguments.data(), count, subject, sizeof subject) ||
      !bundle.getFormattedUTF8String(node.c_str(), "tok_body", arguments.data(), count, body, sizeof body)) {
    return CommandError(kExitFailure, "no tok_subject and tok_body under " + node + " in " + path);
  }
  std::vector<std::string> lines = Lines(body);
  std::list<std::string> body_lines(lines.begin(), lines.end());
  char queue[1024];
  notification_queue_path(ini.c_str(), queue, sizeof queue);
  std::set<std::string> before = SpoolNames(queue);
  sendNotification(subject, body_lines, &ini[0]);
  if (!PrintNewSpoolFiles(queue, before)) return CommandError(kExitFailure, std::string("not queued in ") + queue);
  return kExitOk;
}

int RunMail(int argc, char** argv) {
  if (argc < 2) return Usage();
  std::string verb = argv[1];
  if (verb == "put") return Put(argc - 1, argv + 1);
  if (verb == "list" && argc == 3) return List(argv[2]);
  if (verb == "show" && argc == 3) return Show(argv[2]);
  if (verb == "notify") return Notify(argc - 1, argv + 1);
  return Usage();
}

}  // namespace

BEXO_COMMAND("mail", "queue notification mail and look at the spool directory (put, list, show, notify)", RunMail);
