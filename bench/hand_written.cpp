// The loops of some kernels as one writes them by hand over plain arrays: what bench/run.py holds the kernels against.

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

using i32 = std::int32_t;
using i64 = std::int64_t;

namespace {

// A record that is read. Without a pattern or code their fields are null.
struct Operand {
  const i64* sp;
  const i32* ptr;
  const i64* nidxs;
  const double* cof;
  const i32* codeptr;
  const i32* code;
  const double* cconst;
};

// A record that is written, an element's terms and then close(). The counts and the first slots of ptr and codeptr
// come in as 0.
struct Result {
  i64* sp;
  i32* ptr;
  i64* nidxs;
  double* cof;
  i32* codeptr;
  i32* code;
  double* cconst;
  i32 elements;
  i32 terms;
  i32 atoms;

  void append(const Operand& from, i64 f)
  {
    for (i32 e = from.ptr[f]; e < from.ptr[f + 1]; ++e, ++terms) {
      nidxs[terms] = from.nidxs[e];
      cof[terms] = from.cof[e];
    }
  }

  void append_scaled(const Operand& from, i64 f, double c)
  {
    for (i32 e = from.ptr[f]; e < from.ptr[f + 1]; ++e, ++terms) {
      nidxs[terms] = from.nidxs[e];
      cof[terms] = from.cof[e] * c;
    }
  }

  // The same for an operand with code.
  void append_scaled_code(const Operand& from, i64 f, double c)
  {
    for (i32 e = from.ptr[f]; e < from.ptr[f + 1]; ++e) {
      nidxs[terms] = from.nidxs[e];
      cof[terms] = from.cof[e] * c;
      for (i32 a = from.codeptr[e]; a < from.codeptr[e + 1]; ++a, ++atoms) {
        code[atoms] = from.code[a];
        cconst[atoms] = from.cconst[a];
      }
      code[atoms] = 2;
      cconst[atoms] = c;
      code[atoms + 1] = 5;
      atoms += 2;
      codeptr[++terms] = atoms;
    }
  }

  void close() { ptr[++elements] = terms; }

  void close(i64 position)
  {
    sp[elements] = position;
    close();
  }
};

// An argument as Python packs it: a number, or an address of an array or of a record.
template <class T>
T argument(std::uint64_t slot)
{
  if constexpr (std::is_integral_v<T>) {
    return static_cast<T>(slot);
  } else if constexpr (std::is_class_v<T>) {
    return *std::bit_cast<const T*>(slot);
  } else {
    return std::bit_cast<T>(slot);
  }
}

template <class... Args>
void call(void (*loop)(Args...), const std::uint64_t* slots)
{
  [=]<std::size_t... k>(std::index_sequence<k...>)
  {
    loop(argument<Args>(slots[k])...);
  }
  (std::index_sequence_for<Args...>());
}

}  // namespace

// The head of a loop. Python calls `name` with one argument, the packed ones of the loop, which costs the same for any
// number of them.
#define LOOP(name, ...)                                                             \
  static void name##_loop(__VA_ARGS__);                                             \
  extern "C" __attribute__((visibility("default"))) void name(std::uint64_t* slots) \
  {                                                                                 \
    call(name##_loop, slots);                                                       \
  }                                                                                 \
  static void name##_loop(__VA_ARGS__)

// A sparse matrix times a dense record of d0 rows and d1 columns, with code if the record has any.
LOOP(sparse_product, i32 d0, i32 d1, i32 mnnz, const i32* msubi, const i32* msubj, const double* mval, Operand e,
     Result r)
{
  for (i32 ka = 0, kb; ka < mnnz; ka = kb) {
    for (kb = ka; kb < mnnz && msubi[kb] == msubi[ka];) ++kb;
    for (i32 t = 0; t < d0; ++t) {
      for (i32 k = ka; k < kb; ++k) {
        const i64 f = i64{d1} * t + msubj[k];
        e.code ? r.append_scaled_code(e, f, mval[k]) : r.append_scaled(e, f, mval[k]);
      }
      r.close(i64{d0} * msubi[ka] + t);
    }
  }
}

// One row of a dense matrix times a dense record of d0 rows and d1 columns, without the variables.
LOOP(dense_product_row, i32 d0, i32 d1, const double* row, Operand e, Result r)
{
  for (i32 t = 0; t < d0; ++t) {
    for (i32 j = 0; j < d1; ++j) {
      const i64 f = i64{d1} * t + j;
      for (i32 p = e.ptr[f]; p < e.ptr[f + 1]; ++p) r.cof[r.terms++] = e.cof[p] * row[j];
    }
    r.close();
  }
}

// A sparse matrix times a sparse record: for each row of both, the columns that both have.
LOOP(sparse_sparse_product, i32 d0, i32 d1, i32 mnnz, const i32* msubi, const i32* msubj, const double* mval, i32 nelem,
     Operand e, Result r)
{
  for (i32 ka = 0, kb; ka < mnnz; ka = kb) {
    for (kb = ka; kb < mnnz && msubi[kb] == msubi[ka];) ++kb;
    for (i32 f = 0; f < nelem;) {
      const i64 t = e.sp[f] / d1, end = (t + 1) * d1;
      bool found = false;
      for (i32 k = ka; k < kb; ++k) {
        const i64 position = t * d1 + msubj[k];
        while (f < nelem && e.sp[f] < position) ++f;
        if (f < nelem && e.sp[f] == position) {
          r.append_scaled(e, f, mval[k]);
          found = true;
        }
      }
      if (found) r.close(i64{d0} * msubi[ka] + t);
      while (f < nelem && e.sp[f] < end) ++f;
    }
  }
}

// c1*A + c2*B of two dense records.
LOOP(dense_sum, i32 nelem, double c1, double c2, Operand a, Operand b, Result r)
{
  for (i32 f = 0; f < nelem; ++f) {
    r.append_scaled(a, f, c1);
    r.append_scaled(b, f, c2);
    r.close();
  }
}

// The same with a sparse B of nelem2 elements.
LOOP(dense_sparse_sum, i32 nelem, i32 nelem2, double c1, double c2, Operand a, Operand b, Result r)
{
  i32 next = 0;
  for (i32 f = 0; f < nelem; ++f) {
    r.append_scaled(a, f, c1);
    if (next < nelem2 && b.sp[next] == f) r.append_scaled(b, next++, c2);
    r.close();
  }
}

// The weighted sum of n sparse records; an element for each position that one of them has.
LOOP(sum_of_sparse, i32 n, const double* weights, const i32* nelem, const Operand* const* operands, Result r)
{
  std::vector<i32> at(static_cast<std::size_t>(n));
  for (;;) {
    i64 position = INT64_MAX;
    for (i32 k = 0; k < n; ++k) {
      if (at[k] < nelem[k]) position = std::min(position, operands[k]->sp[at[k]]);
    }
    if (position == INT64_MAX) return;
    for (i32 k = 0; k < n; ++k) {
      if (at[k] < nelem[k] && operands[k]->sp[at[k]] == position) r.append_scaled(*operands[k], at[k]++, weights[k]);
    }
    r.close(position);
  }
}

// The sum of a dense record along the middle one of three axes.
LOOP(sum_axis, i32 outer, i32 ext, i32 inner, Operand e, Result r)
{
  for (i32 a = 0; a < outer; ++a) {
    for (i32 b = 0; b < inner; ++b) {
      for (i32 x = 0; x < ext; ++x) r.append(e, (i64{a} * ext + x) * inner + b);
      r.close();
    }
  }
}

// Merges the terms of each element that have one variable; sums of zeros only are left out.
LOOP(merge_terms, i32 nelem, Operand e, Result r)
{
  std::vector<i32> order;
  for (i32 f = 0; f < nelem; ++f) {
    order.clear();
    for (i32 p = e.ptr[f]; p < e.ptr[f + 1]; ++p) order.push_back(p);
    std::sort(order.begin(), order.end(),
              [=](i32 a, i32 b) { return e.nidxs[a] != e.nidxs[b] ? e.nidxs[a] < e.nidxs[b] : a < b; });
    for (std::size_t k = 0; k < order.size();) {
      const i64 variable = e.nidxs[order[k]];
      double sum = 0.0;
      bool alive = false;
      for (; k < order.size() && e.nidxs[order[k]] == variable; ++k) {
        sum += e.cof[order[k]];
        alive |= e.cof[order[k]] != 0.0;
      }
      if (alive) {
        r.nidxs[r.terms] = variable;
        r.cof[r.terms++] = sum;
      }
    }
    r.close();
  }
}

// --------------------------------------------------------------------------------------------------- elements that
// move

LOOP(pick, i32 n, const i64* idxs, Operand e, Result r)
{
  for (i32 k = 0; k < n; ++k) {
    r.append(e, idxs[k]);
    r.close();
  }
}

// Rows i0 .. i1-1 and columns j0 .. j1-1 of a matrix.
LOOP(slice, i32 columns, i32 i0, i32 i1, i32 j0, i32 j1, Operand e, Result r)
{
  for (i32 i = i0; i < i1; ++i) {
    for (i32 j = j0; j < j1; ++j) {
      r.append(e, i64{i} * columns + j);
      r.close();
    }
  }
}

LOOP(transpose, i32 rows, i32 columns, Operand e, Result r)
{
  for (i32 j = 0; j < columns; ++j) {
    for (i32 i = 0; i < rows; ++i) {
      r.append(e, i64{i} * columns + j);
      r.close();
    }
  }
}

// n dense matrices of `rows` rows side by side.
LOOP(dense_stack, i32 n, i32 rows, const i32* columns, const Operand* const* operands, Result r)
{
  for (i32 i = 0; i < rows; ++i) {
    for (i32 k = 0; k < n; ++k) {
      for (i32 j = 0; j < columns[k]; ++j) {
        r.append(*operands[k], i64{i} * columns[k] + j);
        r.close();
      }
    }
  }
}

// n sparse records of `size` elements one behind the other.
LOOP(sparse_stack, i32 n, i64 size, const i32* nelem, const Operand* const* operands, Result r)
{
  for (i32 k = 0; k < n; ++k) {
    const Operand& e = *operands[k];
    for (i32 f = 0; f < nelem[k]; ++f) {
      r.append(e, f);
      r.close(k * size + e.sp[f]);
    }
  }
}

// Triplets sorted by row, then column, repeated ones added up in their order; slot i+1 of rptr is where row i begins.
LOOP(triplets_to_csr, i64 nnz, i32 rows, i32 columns, const i32* subi, const i32* subj, const double* val, i64* rptr,
     double* tval, i32* tsubi, i32* tsubj)
{
  std::vector<i64> row_at(static_cast<std::size_t>(rows) + 1), column_at(static_cast<std::size_t>(columns) + 1);
  std::vector<i32> by_row(static_cast<std::size_t>(nnz)), by_column(static_cast<std::size_t>(nnz));
  for (i64 k = 0; k < nnz; ++k) {
    ++row_at[subi[k] + 1];
    ++column_at[subj[k] + 1];
  }
  for (i32 i = 0; i < rows; ++i) row_at[i + 1] += row_at[i];
  for (i32 j = 0; j < columns; ++j) column_at[j + 1] += column_at[j];
  for (i64 k = 0; k < nnz; ++k) by_column[column_at[subj[k]]++] = static_cast<i32>(k);
  for (const i32 k : by_column) by_row[row_at[subi[k]]++] = k;

  i64 n = 0;
  for (const i32 k : by_row) {
    if (n > 0 && tsubi[n - 1] == subi[k] && tsubj[n - 1] == subj[k]) {
      tval[n - 1] += val[k];
    } else {
      tsubi[n] = subi[k];
      tsubj[n] = subj[k];
      tval[n++] = val[k];
    }
  }
  std::fill(rptr, rptr + rows + 2, 0);
  for (i64 k = 0; k < n; ++k) ++rptr[tsubi[k] + 2];
  for (i32 i = 0; i < rows; ++i) rptr[i + 2] += rptr[i + 1];
}

// Parametrised rows to triplets, without the rows if `subi` is null.
LOOP(evaluate_rows, i32 nrows, const i32* begin, const i32* end, const i32* first_atom, const i32* sizes,
     const i32* code, const double* cconst, const i64* variables, const double* parameters, double* stack, i32* subi,
     i32* subj, double* val)
{
  i32 n = 0;
  for (i32 row = 0; row < nrows; ++row) {
    i32 a = first_atom[row];
    for (i32 t = begin[row]; t < end[row]; ++t) {
      i32 top = 0;
      for (const i32 stop = a + sizes[t]; a < stop; ++a) {
        switch (code[a]) {
          case 1:
            stack[top++] = parameters[static_cast<i32>(cconst[a])];
            break;
          case 2:
            stack[top++] = cconst[a];
            break;
          case 3:
            --top;
            stack[top - 1] += stack[top];
            break;
          case 4:
            stack[top - 1] = -stack[top - 1];
            break;
          case 5:
            --top;
            stack[top - 1] *= stack[top];
            break;
          case 6:
            stack[top - 1] = 1.0 / stack[top - 1];
            break;
          case 8: {
            double sum = 0.0;
            for (i32 count = static_cast<i32>(cconst[a]); count > 0; --count) sum += stack[--top];
            stack[top++] = sum;
            break;
          }
        }
      }
      if (subi) subi[n] = row;
      subj[n] = static_cast<i32>(variables[t]);
      val[n++] = stack[0];
    }
  }
}

// The linear terms of rows, and their constants, which go into `bfix`.
LOOP(linear_terms, i32 nrows, Operand e, double* bfix, i32* ptrb, i32* subj, double* val)
{
  i32 n = 0;
  for (i32 row = 0; row < nrows; ++row) {
    for (i32 p = e.ptr[row]; p < e.ptr[row + 1]; ++p) {
      if (e.nidxs[p] > 0) {
        subj[n] = static_cast<i32>(e.nidxs[p]);
        val[n++] = e.cof[p];
      } else if (e.nidxs[p] == 0) {
        bfix[row] += e.cof[p];
      }
    }
    ptrb[row + 1] = n;
  }
}

// The values of variables, 0.0 for number 0.
LOOP(gather_variables, i64 n, const i64* numbers, const double* xx, double* res)
{
  for (i64 k = 0; k < n; ++k) res[k] = numbers[k] > 0 ? xx[numbers[k]] : 0.0;
}

LOOP(array_size, i32 n, const i32* shape, i32* size)
{
  i32 product = 1;
  for (i32 d = 0; d < n; ++d) product *= shape[d];
  *size = product;
}
