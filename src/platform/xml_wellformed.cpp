#include "platform/xml_wellformed.h"

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlerror.h>

#include <climits>
#include <mutex>

namespace quorbex::platform {

std::optional<std::string> XmlWellFormednessProblem(std::string_view document) {
  static std::once_flag initialized;
  std::call_once(initialized, [] { xmlInitParser(); });
  if (document.empty()) return "the document is empty";
  if (document.size() > static_cast<size_t>(INT_MAX)) return "the document is too large to check";

  // No callbacks: the parser only checks, and builds nothing. Errors are collected, never printed.
  xmlSAXHandler sax{};
  sax.initialized = XML_SAX2_MAGIC;
  sax.serror = [](void*, xmlErrorPtr) {};
  xmlParserCtxtPtr context = xmlCreateMemoryParserCtxt(document.data(), static_cast<int>(document.size()));
  if (context == nullptr) return "the document cannot be checked (out of memory)";
  xmlSAXHandlerPtr own = context->sax;
  context->sax = &sax;
  context->userData = nullptr;
  xmlCtxtUseOptions(context, XML_PARSE_NONET | XML_PARSE_HUGE | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
  xmlParseDocument(context);
  std::optional<std::string> problem;
  if (!context->wellFormed) {
    const xmlError* error = xmlCtxtGetLastError(context);
    std::string message = error && error->message ? error->message : "not well-formed";
    while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) message.pop_back();
    problem = error ? "line " + std::to_string(error->line) + ", column " + std::to_string(error->int2) + ": " + message
                    : message;
  }
  context->sax = own;
  xmlFreeParserCtxt(context);
  return problem;
}

}  // namespace quorbex::platform
