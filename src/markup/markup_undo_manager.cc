#include "markup/markup_undo_manager.h"

#include <utility>

namespace klipora::markup {

void MarkupUndoManager::registerUndo(std::string actionName, std::function<void()> handler) {
  Step step{std::move(actionName), std::move(handler)};
  switch (state_) {
    case State::undoing:
      redoStack_.push_back(std::move(step));
      break;
    case State::redoing:
      undoStack_.push_back(std::move(step));
      break;
    case State::idle:
      undoStack_.push_back(std::move(step));
      redoStack_.clear();
      break;
  }
}

bool MarkupUndoManager::run(std::vector<Step>& from, State state) {
  // A step that tries to undo from inside another step would interleave the
  // stacks; refuse it.
  if (from.empty() || state_ != State::idle) return false;
  Step step = std::move(from.back());
  from.pop_back();
  state_ = state;
  step.handler();
  state_ = State::idle;
  return true;
}

bool MarkupUndoManager::undo() { return run(undoStack_, State::undoing); }

bool MarkupUndoManager::redo() { return run(redoStack_, State::redoing); }

const std::string& MarkupUndoManager::undoActionName() const {
  static const std::string kNone;
  return undoStack_.empty() ? kNone : undoStack_.back().actionName;
}

const std::string& MarkupUndoManager::redoActionName() const {
  static const std::string kNone;
  return redoStack_.empty() ? kNone : redoStack_.back().actionName;
}

void MarkupUndoManager::removeAllActions() {
  undoStack_.clear();
  redoStack_.clear();
}

}  // namespace klipora::markup
