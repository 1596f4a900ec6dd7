#include "desktop/inspector_panel.h"

#include <QComboBox>
#include <QDateTime>
#include <QEvent>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

#include "desktop/library_actions.h"
#include "desktop/texts.h"
#include "library/records.h"

namespace klipora::desktop {
namespace {

QString StateText(const library::ScreenshotItem& item) {
  using library::ProcessingState;
  switch (item.displayProcessingState()) {
    case ProcessingState::complete: return text("Processed");
    case ProcessingState::failed: return text("Processing failed");
    case ProcessingState::partiallyFailed: return text("Partly processed");
    case ProcessingState::pending: return text("Waiting to be processed");
    default: return text("Processing…");
  }
}

QString DateText(Date date) {
  return QLocale().toString(
      QDateTime::fromSecsSinceEpoch(static_cast<qint64>(date.timeIntervalSince1970())),
      QLocale::LongFormat);
}

QLabel* ValueLabel() {
  auto* label = new QLabel;
  label->setWordWrap(true);
  label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  return label;
}

}  // namespace

InspectorPanel::InspectorPanel(app::LibrarySession& session, LibraryActions& actions,
                               QWidget* parent)
    : QWidget(parent), session_(session), actions_(actions) {
  auto* outer = new QVBoxLayout(this);
  outer->setContentsMargins(0, 0, 0, 0);
  // TRANSLATORS: the inspector with no screenshot selected.
  empty_ = new QLabel(text("Select a screenshot to see its details."));
  empty_->setAlignment(Qt::AlignCenter);
  empty_->setWordWrap(true);
  empty_->setForegroundRole(QPalette::PlaceholderText);
  outer->addWidget(empty_);

  details_ = new QWidget;
  auto* form = new QFormLayout(details_);
  form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
  form->setRowWrapPolicy(QFormLayout::WrapAllRows);
  title_ = new QLineEdit;
  title_->setAccessibleName(text("Title"));
  form->addRow(text("Title"), title_);
  category_ = new QComboBox;
  category_->setAccessibleName(text("Category"));
  form->addRow(text("Category"), category_);
  customCategory_ = ValueLabel();
  form->addRow(text("My category"), customCategory_);
  tags_ = ValueLabel();
  form->addRow(text("Tags"), tags_);
  note_ = new QPlainTextEdit;
  note_->setAccessibleName(text("Note"));
  note_->setTabChangesFocus(true);
  note_->setFixedHeight(64);
  form->addRow(text("Note"), note_);
  text_ = new QPlainTextEdit;
  text_->setReadOnly(true);
  text_->setTabChangesFocus(true);
  text_->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  text_->setAccessibleName(text("Recognised text"));
  text_->setMinimumHeight(110);
  form->addRow(text("Recognised text"), text_);
  captured_ = ValueLabel();
  form->addRow(text("Captured"), captured_);
  source_ = ValueLabel();
  form->addRow(text("Application"), source_);
  size_ = ValueLabel();
  form->addRow(text("Size"), size_);
  state_ = ValueLabel();
  retry_ = new QPushButton(text("Retry"));
  auto* stateRow = new QWidget;
  auto* stateLayout = new QHBoxLayout(stateRow);
  stateLayout->setContentsMargins(0, 0, 0, 0);
  stateLayout->addWidget(state_, 1);
  stateLayout->addWidget(retry_, 0, Qt::AlignTop);
  form->addRow(text("Processing"), stateRow);
  explanation_ = ValueLabel();
  form->addRow(text("Why this category"), explanation_);

  auto* scroll = new QScrollArea;
  scroll->setWidget(details_);
  scroll->setWidgetResizable(true);
  scroll->setFrameShape(QFrame::NoFrame);
  outer->addWidget(scroll);
  scroll->hide();

  // TRANSLATORS: the category menu's first entry; %1 is the category found automatically.
  category_->addItem(text("Automatic"));
  for (auto c : library::kAllScreenshotCategories) {
    category_->addItem(qstr(library::displayName(c)), static_cast<int>(c));
  }
  connect(title_, &QLineEdit::editingFinished, this, &InspectorPanel::saveTitle);
  connect(category_, &QComboBox::activated, this, &InspectorPanel::chooseCategory);
  connect(retry_, &QPushButton::clicked, this, &InspectorPanel::retry);
  note_->installEventFilter(this);
  setMinimumWidth(260);
}

std::optional<UUID> InspectorPanel::shownItem() const {
  return item_ ? std::optional<UUID>(item_->id) : std::nullopt;
}

void InspectorPanel::showItem(std::optional<UUID> id) {
  // Text typed in the fields of the item shown so far is kept.
  if (item_ && (!id || *id != item_->id)) {
    saveTitle();
    saveNote();
  }
  item_.reset();
  if (id) {
    auto item = session_.context().fetchByKey<library::ScreenshotItem>(id->uuidString());
    if (!item) report(item.error());
    if (item && *item) item_ = *item;
  }
  QWidget* scroll = details_->parentWidget()->parentWidget();
  scroll->setVisible(item_ != nullptr);
  empty_->setVisible(item_ == nullptr);
  if (item_) fill(*item_);
}

void InspectorPanel::fill(const library::ScreenshotItem& item) {
  title_->setText(item.hasUserTitle() ? qstr(*item.userTitle) : QString());
  title_->setPlaceholderText(qstr(item.automaticTitle()));
  category_->setItemText(
      0, text("Automatic (%1)").arg(qstr(library::displayName(item.generatedCategory))));
  category_->setCurrentIndex(item.userCategory ? 1 + static_cast<int>(*item.userCategory) : 0);

  QString custom = text("None");
  if (item.customCategoryID) {
    auto c = session_.context().fetchByKey<library::CustomCategory>(
        item.customCategoryID->uuidString());
    if (c && *c) custom = qstr((*c)->name);
  }
  customCategory_->setText(custom);
  QStringList tagNames;
  for (const auto& t : item.userTags()) tagNames << qstr(t);
  tags_->setText(tagNames.isEmpty() ? text("None") : tagNames.join(", "));
  {
    const QSignalBlocker quiet(note_);
    note_->setPlainText(qstr(item.userNote.value_or("")));
  }
  text_->setPlainText(qstr(item.ocrText.value_or("")));
  text_->setPlaceholderText(text("No text found"));
  captured_->setText(item.capturedAt ? DateText(*item.capturedAt)
                                     : text("Imported %1").arg(DateText(item.importedAt)));
  source_->setText(item.sourceAppName ? qstr(*item.sourceAppName) : text("Unknown"));
  // TRANSLATORS: width × height in pixels, then the file size.
  size_->setText(text("%1 × %2 pixels, %3")
                     .arg(item.width)
                     .arg(item.height)
                     .arg(QLocale().formattedDataSize(item.fileSize)));
  QString state = StateText(item);
  if (item.showsProcessingFailure() && item.processingError) {
    state += "\n" + qstr(*item.processingError);
  }
  state_->setText(state);
  retry_->setVisible(item.showsProcessingFailure());
  explanation_->setText(item.categorizationExplanation ? qstr(*item.categorizationExplanation)
                                                       : text("Not classified yet"));
}

void InspectorPanel::saveTitle() {
  if (!item_) return;
  const std::string typed = title_->text().trimmed().toStdString();
  std::optional<std::string> wanted = typed.empty() ? std::nullopt : std::optional(typed);
  if (wanted == item_->userTitle) return;
  item_->userTitle = wanted;
  report(session_.context().save());
  emit itemChanged(qstr(item_->id.uuidString()));
}

bool InspectorPanel::eventFilter(QObject* watched, QEvent* event) {
  if (watched == note_ && event->type() == QEvent::FocusOut) saveNote();
  return QWidget::eventFilter(watched, event);
}

void InspectorPanel::saveNote() {
  if (!item_) return;
  const std::string typed = note_->toPlainText().toStdString();
  std::optional<std::string> wanted = typed.empty() ? std::nullopt : std::optional(typed);
  if (wanted == item_->userNote) return;
  item_->userNote = wanted;
  report(session_.context().save());
}

void InspectorPanel::chooseCategory(int index) {
  if (!item_) return;
  std::optional<library::ScreenshotCategory> category;
  if (index > 0) category = static_cast<library::ScreenshotCategory>(category_->itemData(index).toInt());
  report(actions_.setCategory({item_->id}, category));
  emit itemChanged(qstr(item_->id.uuidString()));
  showItem(item_->id);
}

void InspectorPanel::retry() {
  if (!item_) return;
  report(actions_.retry({item_->id}));
  showItem(item_->id);
  emit itemChanged(qstr(item_->id.uuidString()));
}

void InspectorPanel::report(const Status& s) {
  if (!s.ok()) {
    session_.context().rollback();
    emit failed(qstr(s.message()));
  }
}

}  // namespace klipora::desktop
