#include "mail/ck_mime.h"

#include <gmime/gmime.h>

#include "mail/file_bytes.h"
#include "mail/mime_library.h"

namespace marrow {
namespace {

struct Unref {
  void operator()(void* object) const { g_object_unref(object); }
};
template <typename T>
using Ref = std::unique_ptr<T, Unref>;

}  // namespace

// Owns one reference to the top-level entity, taken from the parser.
struct CkMime::Impl {
  Ref<GMimeObject> top;
};

CkMime::CkMime() : impl_(std::make_unique<Impl>()) {}
CkMime::~CkMime() = default;

bool CkMime::LoadMimeFile(const std::string& path) {
  std::string bytes;
  if (!ReadWholeFile(path, &bytes)) {
    lastError_ = "Failed to read file: " + path;
    return false;
  }
  return LoadMime(bytes);
}

bool CkMime::LoadMime(std::string_view text) {
  EnsureMimeLibrary();
  lastError_.clear();
  // The parser reads from its own copy of the bytes.
  Ref<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(text.data(), text.size()));
  Ref<GMimeParser> parser(g_mime_parser_new_with_stream(stream.get()));
  Ref<GMimeObject> top(text.empty() ? nullptr : g_mime_parser_construct_part(parser.get(), nullptr));
  if (!top) {
    lastError_ = "Failed to parse MIME";
    return false;
  }
  impl_->top = std::move(top);
  return true;
}

std::string CkMime::GetBoundary() const {
  if (!impl_->top) return {};
  const char* boundary = g_mime_object_get_content_type_parameter(impl_->top.get(), "boundary");
  return boundary ? boundary : "";
}

bool CkMime::SetBoundary(const std::string& boundary) {
  if (!impl_->top) {
    lastError_ = "No MIME loaded";
    return false;
  }
  if (GMIME_IS_MULTIPART(impl_->top.get()))
    g_mime_multipart_set_boundary(GMIME_MULTIPART(impl_->top.get()), boundary.c_str());
  else
    g_mime_object_set_content_type_parameter(impl_->top.get(), "boundary", boundary.c_str());
  return true;
}

std::string CkMime::GetMime() const {
  if (!impl_->top) return {};
  GMimeFormatOptions* options = g_mime_format_options_new();
  g_mime_format_options_set_newline_format(options, GMIME_NEWLINE_FORMAT_DOS);
  // As in CkEmail: the filter adds the CRs GMime leaves off around a prologue.
  Ref<GMimeStream> memory(g_mime_stream_mem_new());
  Ref<GMimeStream> filtered(g_mime_stream_filter_new(memory.get()));
  Ref<GMimeFilter> crlf(g_mime_filter_unix2dos_new(FALSE));
  g_mime_stream_filter_add(GMIME_STREAM_FILTER(filtered.get()), crlf.get());
  g_mime_object_write_to_stream(impl_->top.get(), options, filtered.get());
  g_mime_stream_flush(filtered.get());
  g_mime_format_options_free(options);
  const GByteArray* bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(memory.get()));
  return std::string(reinterpret_cast<const char*>(bytes->data), bytes->len);
}

bool CkMime::SaveMime(const std::string& path) {
  if (!impl_->top) {
    lastError_ = "No MIME loaded";
    return false;
  }
  if (!WriteWholeFile(path, GetMime())) {
    lastError_ = "Failed to write file: " + path;
    return false;
  }
  lastError_.clear();
  return true;
}

}  // namespace marrow
