// The outside readers: GLib's checksums, Python's email package, GMime.
#include <fcntl.h>
#include <glib.h>
#include <gmime/gmime.h>

#include <cstdio>
#include <sstream>

#include "mail/mime_library.h"
#include "tests/support/test_data.h"

namespace marrow::test {

std::string Hex(const std::string& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char c : bytes) {
    out.push_back(kDigits[c >> 4]);
    out.push_back(kDigits[c & 15]);
  }
  return out;
}

std::string FileSha256(const std::string& path) {
  const Buf bytes = ReadFile<Buf>(path);
  gchar* hex = g_compute_checksum_for_data(G_CHECKSUM_SHA256, bytes.data(), bytes.size());
  const std::string out = hex;
  g_free(hex);
  return out;
}

std::vector<std::vector<std::string>> PythonDumps(const std::vector<std::string>& emlPaths, bool* available) {
  static const bool haveIt = std::system("python3 -c 'import email' >/dev/null 2>&1") == 0;
  *available = haveIt;
  std::vector<std::vector<std::string>> dumps;
  if (!haveIt) return dumps;
  std::string command = "python3 '" + std::string(MARROW_SOURCE_DIR) + "/tests/mail/eml_dump.py'";
  for (const std::string& path : emlPaths) command += " '" + path + "'";
  command += " 2>&1";
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
  if (!pipe) return dumps;
  std::string out;
  for (int c; (c = std::fgetc(pipe.get())) != EOF;) out.push_back(static_cast<char>(c));
  // Lines before the first "message" (Python failing to start) make a dump of their own.
  std::istringstream lines(out);
  for (std::string line; std::getline(lines, line);) {
    if (line == "message" || dumps.empty()) dumps.emplace_back();
    if (line != "message") dumps.back().push_back(line);
  }
  return dumps;
}

std::vector<std::string> PythonDump(const std::string& emlPath, bool* available) {
  std::vector<std::vector<std::string>> dumps = PythonDumps({emlPath}, available);
  return dumps.empty() ? std::vector<std::string>() : std::move(dumps.front());
}

std::string GMimeSubject(const std::string& emlPath) {
  EnsureMimeLibrary();
  GMimeStream* stream = g_mime_stream_fs_open(emlPath.c_str(), O_RDONLY, 0, nullptr);
  if (!stream) return "<unreadable>";
  GMimeParser* parser = g_mime_parser_new_with_stream(stream);
  GMimeMessage* message = g_mime_parser_construct_message(parser, nullptr);
  std::string subject = "<unparsed>";
  if (message) {
    const char* text = g_mime_message_get_subject(message);
    subject = text ? text : "";
    g_object_unref(message);
  }
  g_object_unref(parser);
  g_object_unref(stream);
  return subject;
}

}  // namespace marrow::test
