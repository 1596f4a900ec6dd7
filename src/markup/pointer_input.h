// PointerInput: the one question about the user's input that the document's
// undo coalescing asks: is a pointer button held down right now (a drag in
// progress)? The editor's canvas answers it from its toolkit's input state.
// NoPointerInput never reports a button down, for headless use (the command
// line, tools that replay edits).
// Thread rules: asked on the main thread only.
#pragma once

namespace klipora::markup {

class PointerInput {
 public:
  PointerInput() = default;
  PointerInput(const PointerInput&) = delete;
  PointerInput& operator=(const PointerInput&) = delete;
  virtual ~PointerInput() = default;

  virtual bool isButtonDown() const = 0;
};

class NoPointerInput final : public PointerInput {
 public:
  bool isButtonDown() const override { return false; }
};

}  // namespace klipora::markup
