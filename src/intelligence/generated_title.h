// The title an item shows until the user gives it one, and whether its
// category is doubtful enough to ask the user.
//
// The language model's title is used when it has one: trimmed of white space
// and of quotes around it, a leading "Title:" dropped, inner white space and
// line breaks collapsed to one space, a trailing full stop dropped, and cut
// at a word boundary with an ellipsis beyond kMaxGeneratedTitleLength
// characters. Without a usable model title the title is the category's
// display name and the local capture date: "Receipts · 24 Nov 2026" (the
// name alone for a date no calendar holds).
//
// An item is flagged for review when the category's confidence is below
// kReviewConfidenceThreshold or not a number: a lone candidate with under
// about a third of an established category's score, or two close candidates
// neither of which is well established. An item that nothing filed
// (confidence 0) is flagged too.
// Pure functions; safe from any thread (the date reads the local time zone).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "library/screenshot_category.h"
#include "platform/date.h"

namespace klipora::intelligence {

inline constexpr size_t kMaxGeneratedTitleLength = 80;
inline constexpr double kReviewConfidenceThreshold = 0.35;

std::string makeGeneratedTitle(const std::optional<std::string>& modelTitle,
                               library::ScreenshotCategory category, Date capturedOrImportedAt);

// The cleaned model title; empty when nothing remains of it.
std::string cleanModelTitle(std::string_view title);

bool shouldFlagForReview(double confidence);

}  // namespace klipora::intelligence
