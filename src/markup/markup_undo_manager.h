// MarkupUndoManager: the undo and redo stacks of one open markup document.
// Each step is a closure with the action name the Edit menu shows ("Undo
// Move"). A closure that runs during undo() registers its inverse, which lands
// on the redo stack; during redo() it lands back on the undo stack. A new step
// registered outside undo and redo clears the redo stack. History lives in
// memory only and dies with the document.
//
// Thread rules: main thread only, like the document that owns it.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace klipora::markup {

class MarkupUndoManager {
 public:
  MarkupUndoManager() = default;
  MarkupUndoManager(const MarkupUndoManager&) = delete;
  MarkupUndoManager& operator=(const MarkupUndoManager&) = delete;

  // Pushes one step onto the stack that the current state calls for.
  void registerUndo(std::string actionName, std::function<void()> handler);

  bool canUndo() const { return !undoStack_.empty(); }
  bool canRedo() const { return !redoStack_.empty(); }
  // Runs the newest undo step; false when there is none (or one is running).
  bool undo();
  bool redo();
  bool isUndoing() const { return state_ == State::undoing; }
  bool isRedoing() const { return state_ == State::redoing; }

  // Names of the steps undo() and redo() would run; "" when there are none.
  const std::string& undoActionName() const;
  const std::string& redoActionName() const;
  size_t undoCount() const { return undoStack_.size(); }
  size_t redoCount() const { return redoStack_.size(); }
  void removeAllActions();

 private:
  enum class State { idle, undoing, redoing };
  struct Step {
    std::string actionName;
    std::function<void()> handler;
  };
  bool run(std::vector<Step>& from, State state);

  std::vector<Step> undoStack_;
  std::vector<Step> redoStack_;
  State state_ = State::idle;
};

}  // namespace klipora::markup
