#include "mail/ck_email_private.h"

#include "mail/encoded_words.h"

namespace marrow {
namespace ck_detail {

std::unique_ptr<GMimeFormatOptions, FormatOptionsFree> WriteOptions() {
  std::unique_ptr<GMimeFormatOptions, FormatOptionsFree> options(g_mime_format_options_new());
  g_mime_format_options_set_newline_format(options.get(), GMIME_NEWLINE_FORMAT_DOS);
  return options;
}

std::string Take(char* text) {
  std::string out = text ? text : "";
  g_free(text);
  return out;
}

namespace {

// Mends the encoded words of every header of `object` and of the parts and
// messages inside it.
void MendHeaders(GMimeObject* object) {
  if (object == nullptr) return;
  GMimeHeaderList* headers = g_mime_object_get_header_list(object);
  for (int i = 0, n = headers ? g_mime_header_list_get_count(headers) : 0; i < n; ++i) {
    GMimeHeader* header = g_mime_header_list_get_header_at(headers, i);
    const char* raw = g_mime_header_get_raw_value(header);
    if (raw == nullptr) continue;
    const std::string mended = MendEncodedWords(raw);
    if (mended != raw) g_mime_header_set_raw_value(header, mended.c_str());
  }
  if (GMIME_IS_MESSAGE(object)) {
    MendHeaders(g_mime_message_get_mime_part(GMIME_MESSAGE(object)));
  } else if (GMIME_IS_MULTIPART(object)) {
    GMimeMultipart* multipart = GMIME_MULTIPART(object);
    for (int i = 0, n = g_mime_multipart_get_count(multipart); i < n; ++i) {
      MendHeaders(g_mime_multipart_get_part(multipart, i));
    }
  } else if (GMIME_IS_MESSAGE_PART(object)) {
    MendHeaders(GMIME_OBJECT(g_mime_message_part_get_message(GMIME_MESSAGE_PART(object))));
  }
}

}  // namespace

// GMime writes a multipart's prologue and epilogue with bare LFs whatever the
// options say, so everything also passes a filter that adds the missing CRs.
std::string WriteObject(GMimeObject* object) {
  // GMime splits long header texts into base64 words that its own reader,
  // and others that join the words first, cut short.
  MendHeaders(object);
  Ref<GMimeStream> memory(g_mime_stream_mem_new());
  Ref<GMimeStream> filtered(g_mime_stream_filter_new(memory.get()));
  Ref<GMimeFilter> crlf(g_mime_filter_unix2dos_new(FALSE));
  g_mime_stream_filter_add(GMIME_STREAM_FILTER(filtered.get()), crlf.get());
  g_mime_object_write_to_stream(object, WriteOptions().get(), filtered.get());
  g_mime_stream_flush(filtered.get());
  const GByteArray* bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(memory.get()));
  return std::string(reinterpret_cast<const char*>(bytes->data), bytes->len);
}

Ref<GMimeMessage> ParseMessage(std::string_view text) {
  if (text.empty()) return nullptr;
  Ref<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(text.data(), text.size()));
  Ref<GMimeParser> parser(g_mime_parser_new_with_stream(stream.get()));
  return Ref<GMimeMessage>(g_mime_parser_construct_message(parser.get(), nullptr));
}

std::string DecodedContent(GMimePart* part) {
  GMimeDataWrapper* content = g_mime_part_get_content(part);
  if (!content) return {};
  Ref<GMimeStream> memory(g_mime_stream_mem_new());
  g_mime_data_wrapper_write_to_stream(content, memory.get());
  const GByteArray* bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(memory.get()));
  return std::string(reinterpret_cast<const char*>(bytes->data), bytes->len);
}

void SetContent(GMimePart* part, std::string_view bytes) {
  Ref<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(bytes.data(), bytes.size()));
  Ref<GMimeDataWrapper> wrapper(g_mime_data_wrapper_new_with_stream(stream.get(), GMIME_CONTENT_ENCODING_DEFAULT));
  g_mime_part_set_content(part, wrapper.get());
}

}  // namespace ck_detail

}  // namespace marrow
