// The loops of some kernels as one writes them by hand over plain arrays: what bench/run.py holds the kernels against.

#include <cstdint>

using i32 = std::int32_t;
using i64 = std::int64_t;

#define EXPORT extern "C" __attribute__((visibility("default")))

// The product of a sparse matrix and a dense record, without code.
EXPORT void sparse_product(i32 d0, i32 d1, i32 mnnz, const i32* msubi, const i32* msubj, const double* mval,
                           const i32* ptr, const i64* nidxs, const double* cof, i32* rptr, i64* rsp, i64* rnidxs,
                           double* rcof)
{
  i64 nz = 0, elm = 0;
  for (i32 ka = 0, kb; ka < mnnz; ka = kb) {
    for (kb = ka; kb < mnnz && msubi[kb] == msubi[ka];) ++kb;
    for (i64 t = 0; t < d0; ++t) {
      for (i32 k = ka; k < kb; ++k) {
        const double c = mval[k];
        const i64 f = d1 * t + msubj[k];
        for (i64 e = ptr[f]; e < ptr[f + 1]; ++e) {
          rnidxs[nz] = nidxs[e];
          rcof[nz] = cof[e] * c;
          ++nz;
        }
      }
      rptr[elm + 1] = static_cast<i32>(nz);
      rsp[elm] = static_cast<i64>(d0) * msubi[ka] + t;
      ++elm;
    }
  }
}

// The same with code.
EXPORT void sparse_product_with_code(i32 d0, i32 d1, i32 mnnz, const i32* msubi, const i32* msubj, const double* mval,
                                     const i32* ptr, const i64* nidxs, const double* cof, const i32* codeptr,
                                     const i32* code, const double* cconst, i32* rptr, i64* rsp, i64* rnidxs,
                                     double* rcof, i32* rcodeptr, i32* rcode, double* rcconst)
{
  i64 nz = 0, elm = 0, c_ = 0;
  for (i32 ka = 0, kb; ka < mnnz; ka = kb) {
    for (kb = ka; kb < mnnz && msubi[kb] == msubi[ka];) ++kb;
    for (i64 t = 0; t < d0; ++t) {
      for (i32 k = ka; k < kb; ++k) {
        const double c = mval[k];
        const i64 f = d1 * t + msubj[k];
        for (i64 e = ptr[f]; e < ptr[f + 1]; ++e) {
          rnidxs[nz] = nidxs[e];
          rcof[nz] = cof[e] * c;
          for (i64 a = codeptr[e]; a < codeptr[e + 1]; ++a, ++c_) {
            rcode[c_] = code[a];
            rcconst[c_] = cconst[a];
          }
          rcode[c_] = 2;
          rcconst[c_] = c;
          rcode[c_ + 1] = 5;
          c_ += 2;
          rcodeptr[nz + 1] = static_cast<i32>(c_);
          ++nz;
        }
      }
      rptr[elm + 1] = static_cast<i32>(nz);
      rsp[elm] = static_cast<i64>(d0) * msubi[ka] + t;
      ++elm;
    }
  }
}

// c1*A + c2*B of two dense records, without code.
EXPORT void weighted_sum(i32 n, double c1, double c2, const i32* ptr1, const i64* nidxs1, const double* cof1,
                         const i32* ptr2, const i64* nidxs2, const double* cof2, i32* rptr, i64* rnidxs, double* rcof)
{
  i64 nz = 0;
  for (i32 k = 0; k < n; ++k) {
    for (i64 e = ptr1[k]; e < ptr1[k + 1]; ++e, ++nz) {
      rnidxs[nz] = nidxs1[e];
      rcof[nz] = cof1[e] * c1;
    }
    for (i64 e = ptr2[k]; e < ptr2[k + 1]; ++e, ++nz) {
      rnidxs[nz] = nidxs2[e];
      rcof[nz] = cof2[e] * c2;
    }
    rptr[k + 1] = static_cast<i32>(nz);
  }
}

// The elements of a dense record that `idxs` names, without code.
EXPORT void pick(i32 n, const i64* idxs, const i32* ptr, const i64* nidxs, const double* cof, i32* rptr, i64* rnidxs,
                 double* rcof)
{
  i64 nz = 0;
  for (i32 k = 0; k < n; ++k) {
    const i64 f = idxs[k];
    for (i64 e = ptr[f]; e < ptr[f + 1]; ++e, ++nz) {
      rnidxs[nz] = nidxs[e];
      rcof[nz] = cof[e];
    }
    rptr[k + 1] = static_cast<i32>(nz);
  }
}

EXPORT void copy_i64(i32 n, const i64* from, i64* to)
{
  for (i32 k = 0; k < n; ++k) to[k] = from[k];
}

// A stable placing pass: triplet numbers by column.
EXPORT void place_by_column(i64 nnz, const i32* subj, i64* cptrb, i32* cols)
{
  for (i64 k = 0; k < nnz; ++k) cols[cptrb[subj[k] + 1]++] = static_cast<i32>(k);
}

// The evaluation of one parametrised row, with the opcodes that the bench uses.
EXPORT void evaluate_row(i64 nterms, const i32* sizes, const i32* code, const double* cconst, const i64* variables,
                         const double* param_value, double* stack, i32* subj, double* val)
{
  i64 a = 0;
  for (i64 t = 0; t < nterms; ++t) {
    i64 top = 0;
    for (const i64 end = a + sizes[t]; a < end; ++a) {
      switch (code[a]) {
        case 1:
          stack[top++] = param_value[static_cast<i32>(cconst[a])];
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
          for (i32 n = static_cast<i32>(cconst[a]); n > 0; --n) sum += stack[--top];
          stack[top++] = sum;
          break;
        }
      }
    }
    subj[t] = static_cast<i32>(variables[t]);
    val[t] = stack[0];
  }
}
