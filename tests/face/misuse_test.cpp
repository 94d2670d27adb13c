// The C++ face held wrongly: temporaries, objects moved from, assignment to themselves.

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "face/FaceTesting.h"
#include "face/Failure.h"

using namespace face_testing;
using orvacam::Decoded;
using orvacam::Decoder;
using orvacam::Frame;
using orvacam::Header;
using orvacam::Image;
using orvacam::Plane;
using orvacam::Planes;
using orvacam::Stack;

namespace {

// What a temporary holds is given by value, so that a reference to it lives.
static_assert(std::is_same_v<decltype(std::declval<Frame>().header()), Header>);
static_assert(std::is_same_v<decltype(std::declval<const Frame&>().header()), const Header&>);
static_assert(std::is_same_v<decltype(std::declval<Plane>().header()), Header>);
static_assert(!std::is_reference_v<decltype(std::declval<Plane>().statistics())>);
// Moves cannot fail, so that containers move.
template <class Type>
constexpr bool movesQuietly =
    std::is_nothrow_move_constructible_v<Type>&& std::is_nothrow_move_assignable_v<Type>;
static_assert(movesQuietly<Header> && movesQuietly<Frame> && movesQuietly<Plane> && movesQuietly<Decoded>);
static_assert(movesQuietly<Decoder> && movesQuietly<Stack> && movesQuietly<Image<float>>);
static_assert(!std::is_copy_constructible_v<Decoder> && !std::is_copy_constructible_v<Stack>);

Frame pair() {
  return frameOf(fieldsOf("GSense400Hdr"));
}

template <class Type>
void assignToItself(Type& object) {
  Type& same = object;
  object = std::move(same);
}

TEST(FaceMisuse, ReferencesIntoTemporariesLive) {
  const Header& header = pair().header();
  EXPECT_EQ(header.sensor(), "GSENSE400");
  Planes wanted;
  wanted.statistics = true;
  const auto& statistics = Decoder().decode(pair(), wanted).merged.statistics();
  ASSERT_TRUE(statistics.has_value());
  EXPECT_EQ(statistics->count, 240u);
  EXPECT_EQ(Decoder().decode(pair()).low.header().sensor(), "GSENSE400");
}

TEST(FaceMisuse, WhateverIsThrownInsideIsAReason) {
  using orvacam::face::guarded;
  EXPECT_EQ(guarded([] { throw std::logic_error("seven"); }), -ORVA_INTERNAL);
  EXPECT_STREQ(orva_last_error()->text, "a fault of the library: seven");
  EXPECT_EQ(guarded([] { throw 7; }), -ORVA_INTERNAL);
  EXPECT_STREQ(orva_last_error()->text, "a fault of the library");
  EXPECT_EQ(guarded([] { throw std::bad_alloc(); }), -ORVA_OUT_OF_MEMORY);
  EXPECT_EQ(orva_last_error()->kind, ORVA_OUT_OF_MEMORY);
}

TEST(FaceMisuse, SettingsOfTemporariesAreKept) {
  Decoder decoder = Decoder().thresholds(3600, 100).dsnu("").prnu("").bias({}, {}).calibration(nullptr, 0);
  EXPECT_EQ(decoder.merge_info(pair().header()).high_threshold, 3600u);
  Stack stack = Stack(Stack::Method::median)
                    .plane("merged")
                    .decoder(Decoder().thresholds(3600, 100))
                    .sigma(2, 2)
                    .allow_unlike(true);
  stack.add(pair());
  EXPECT_EQ(stack.count(), 1u);
}

TEST(FaceMisuse, ObjectsAssignedToThemselvesStayAsTheyWere) {
  Frame frame = pair();
  Header header = frame.header();
  Decoder decoder;
  Decoded planes = decoder.decode(frame);
  Stack stack;
  stack.add(frame);
  assignToItself(frame);
  assignToItself(header);
  assignToItself(decoder);
  assignToItself(planes.merged);
  assignToItself(stack);
  EXPECT_EQ(header.sensor(), frame.header().sensor());
  EXPECT_EQ(pixelsOf(decoder.decode(frame).merged), pixelsOf(planes.merged));
  EXPECT_EQ(stack.count(), 1u);
  EXPECT_EQ(stack.result().size(), planes.merged.size());
}

TEST(FaceMisuse, ObjectsMovedFromSayThatTheyAreEmpty) {
  Frame frame = pair();
  const Frame kept = std::move(frame);
  Decoder decoder;
  const Decoder taken = std::move(decoder);
  Stack stack;
  const Stack moved = std::move(stack);
  EXPECT_TRUE(frame.planes().empty());
  EXPECT_EQ(reasonOf([&] { frame.check(); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { frame.bytes(); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { frame.header().sensor(); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { decoder.decode(kept); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { Decoder().decode(frame); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { stack.add(kept); }), Reason::bad_argument);
  EXPECT_EQ(reasonOf([&] { Stack().decoder(std::move(decoder)); }), Reason::bad_argument);
  EXPECT_EQ(stack.count(), 0u);
}

TEST(FaceMisuse, AStackMergedWithItselfCountsItsFramesTwice) {
  Stack stack;
  stack.add(pair());
  const auto sums = pixelsOf(Decoder().decode(pair()).merged);
  stack.merge(stack);
  EXPECT_EQ(stack.count(), 2u);
  EXPECT_EQ(stack.sums()(3, 2), 2u * sums[2 * 24 + 3]);
}

}  // namespace
