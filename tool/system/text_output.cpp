#include "system/text_output.hpp"

#include <unistd.h>

#include "system/write_all.hpp"

namespace zorvel {

TextOutput::TextOutput(const std::string& name) {
  if (name != "-") _file.emplace(name);
}

void TextOutput::flush() {
  if (_file) {
    _file->flushIfFull();
    return;
  }
  // Not through stdio, which would try once more at the end what could not be written.
  writeAll(STDOUT_FILENO, "standard output", {_text.data(), _text.size()});
  _text.clear();
}

void TextOutput::commit() {
  if (!_file) return;
  _file->finish();
  _file->commit();
}

}  // namespace zorvel
