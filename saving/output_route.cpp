#include "saving/output_route.h"

#include "saving/eml_writer.h"
#include "saving/mbox_writer.h"

namespace marrow {
namespace {

template <typename Writer>
std::unique_ptr<ItemWriter> Make() {
  return std::make_unique<Writer>();
}

}  // namespace

OutputRoute RouteOf(OutputKind kind) {
  switch (kind) {
    case kOutputPst: return {true, true, 3};
    case kOutputMsg: return {true, false, 3};
    case kOutputDbx: return {false, true, 3};
    case kOutputEml: return {false, false, 3, Make<EmlWriter>};
    case kOutputMbox: return {false, false, 3, Make<MboxWriter>};
    case kOutputServer: return {true, false, 3};
    case kOutputTxt: return {true, false, 0};
    case kOutputRtf: return {true, false, 1};
    case kOutputDoc: return {true, false, 4};
    case kOutputHtml: return {true, false, 5};
    case kOutputMhtml: return {true, false, 10};
    case kOutputPdf: return {true, false, 2001};
    default: return {false, false, 3};
  }
}

}  // namespace marrow
