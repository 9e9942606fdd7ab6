// The stable counting sort: clear the buckets, count the items of each, add up, place the items. Each step is a
// function of its own, for kernels that run one step and for those that run all.
//
// The n buckets live in slots 0 .. n of `ptr`, a Run or an array of i32 or i64. Bucket b is counted in ptr[b+1], so
// that after adding up ptr[b] is where it starts. Placing moves ptr[b] forward to where it ends, which is the start of
// b+1; shift_up() brings the starts back.
//
// Items of one key keep their order, so sorting by one axis after the other, the least significant first, sorts by all.
// Keys come from callables: of an item's number when counting, of the item when placing.
#pragma once

#include <algorithm>

#include "frame/frame.h"

namespace fragments {

// perm[k] = k for k below n: the order to begin with.
template <class Order>
void number_items(const Order& perm, i64 n)
{
  for (i64 k = 0; k < n; ++k) perm[k] = static_cast<i32>(k);
}

// ptr[0 .. n] = 0; nothing for n below 0.
template <class Buckets>
void clear_buckets(const Buckets& ptr, i64 n)
{
  for (i64 b = 0; b <= n; ++b) ptr[b] = 0;
}

// Counts the items 0 .. n-1, item k in ptr[key(k) + 1].
template <class Buckets, class Key>
void count_buckets(const Buckets& ptr, i64 n, Key key)
{
  for (i64 k = 0; k < n; ++k) ++ptr[key(k) + 1];
}

// ptr[b+1] += ptr[b] for b below n, in order.
template <class Buckets>
void add_up(const Buckets& ptr, i64 n)
{
  for (i64 b = 0; b < n; ++b) ptr[b + 1] = wrapping_add(ptr[b + 1], ptr[b]);
}

// Places the items item(0) .. item(n-1) in this order: put(place, i) for item i, ptr[key(i)] being its place and one
// higher afterwards.
template <class Buckets, class Item, class Key, class Put>
void place_items(const Buckets& ptr, i64 n, Item item, Key key, Put put)
{
  for (i64 k = 0; k < n; ++k) {
    const auto i = item(k);
    put(ptr[key(i)]++, i);
  }
}

// The first pass of a sort: the items are the numbers 0 .. n-1, and `perm` takes them.
template <class Buckets, class Order, class Key>
void place_items(const Buckets& ptr, const Order& perm, i64 n, Key key)
{
  place_items(
      ptr, n, [](i64 k) { return k; }, key, [&](i64 place, i64 k) { perm[place] = static_cast<i32>(k); });
}

// A later pass: the items are those of `from` in its order, and `to` takes them.
template <class Buckets, class From, class To, class Key>
void reorder_items(const Buckets& ptr, const From& from, const To& to, i64 n, Key key)
{
  place_items(
      ptr, n, [&](i64 k) { return from[k]; }, key, [&](i64 place, i32 i) { to[place] = i; });
}

// A whole pass over n items: from their order in `from` to that in `to`, by key(item) below `buckets`. `added` buckets
// are added up, all of them normally.
template <class Buckets, class From, class To, class Key>
void sort_pass(const Buckets& ptr, i64 buckets, i64 added, const From& from, const To& to, i64 n, Key key)
{
  clear_buckets(ptr, buckets);
  count_buckets(ptr, n, [&](i64 k) { return key(from[k]); });
  add_up(ptr, added);
  reorder_items(ptr, from, to, n, key);
}

// ptr[b] = ptr[b-1] for b from n down to 1. After placing into buckets 0 .. n-1 ptr[b] is the start of bucket b again,
// for b above 0; ptr[0] keeps what it holds, and the caller sets it to 0.
template <class Buckets>
void shift_up(const Buckets& ptr, i64 n)
{
  if (n < 1) return;
  if constexpr (requires { ptr.stride; }) {
    if (ptr.stride == 1) {
      std::copy_backward(&ptr[0], &ptr[n - 1] + 1, &ptr[n] + 1);
      return;
    }
  }
  for (i64 b = n; b > 0; --b) ptr[b] = ptr[b - 1];
}

}  // namespace fragments
