// Compaction of coefficient code. After many operators a term's code has grown by mechanical rules, and every constant
// still stands in an atom of its own. Here the code is run symbolically into an expression tree, in which constants are
// folded, additions of 0 and multiplications by 1 dropped, products with 0 made 0 and the constants of a sum merged;
// the tree is written back as a shorter program.
//
// A coefficient is `cof` plus the value of its code, and compaction keeps it. Code that folds to a constant moves into
// `cof`, and the mark `moved_to_cof`, an atom 10, stays; of all other terms `cof` moves into the code. What the opcodes
// do stands at the evaluation 134. With the folded code 386 and 390 then drop the terms that became zero.

#include <utility>

#include "code/opcodes.h"

namespace fragments {
namespace {

// The tree of one term, in scratch areas of the x stack. Every atom that makes a value takes up a node, also one that
// passes an operand's node on, whose own then stays unused. Node n has the children children[childptr[n]] ..
// children[childptr[n+1]-1]. The stack holds the nodes of the values that the program has pushed.
struct Tree {
  Run<i32> opcode;
  Run<i32> target_opcode;  // the same slots under the array's other name, for marks and constants of the program
  Run<f64> value;          // of a constant, or the operand of the atom that made the node
  Run<i32> childptr;
  Run<i32> children;
  Run<i32> stack;
  i32 depth;
  i32 nodes;

  static constexpr i32 unused = -9999;

  void clear(i32 atoms)
  {
    depth = 0;
    nodes = 0;
    childptr[0] = 0;
    for (i64 n = 0; n < atoms; ++n) target_opcode[n] = unused;
  }

  bool is_constant(i32 node) const { return opcode[node] == push_constant; }
  bool is_constant(i32 node, f64 expected) const { return is_constant(node) && value[node] == expected; }

  void push(i32 node) { stack[depth++] = node; }
  i32 pop() { return stack[--depth]; }

  void add_child(i32 node) { children[childptr[nodes + 1]++] = node; }

  // Makes the next node, first without children; push_next() then ends it.
  void make(i32 op)
  {
    opcode[nodes] = op;
    childptr[nodes + 1] = childptr[nodes];
  }
  void make(i32 op, f64 operand)
  {
    value[nodes] = operand;
    make(op);
  }
  void push_next() { push(nodes++); }

  void push_leaf(i32 op, f64 operand)
  {
    make(op, operand);
    push_next();
  }
  void push_folded(f64 constant) { push_leaf(push_constant, constant); }
  void push_source_constant(f64 constant)
  {
    target_opcode[nodes] = push_constant;
    value[nodes] = constant;
    childptr[nodes + 1] = childptr[nodes];
    push_next();
  }

  // Pushes a node again instead of the next one, which stays unused and leaves `gap` places of the children free.
  void pass_on(i32 node, i32 gap)
  {
    childptr[nodes + 1] = childptr[nodes] + gap;
    push(node);
    ++nodes;
  }

  void push_pair(i32 op, f64 operand, i32 x, i32 y)
  {
    make(op, operand);
    add_child(x);
    add_child(y);
    push_next();
  }
};

// The rules for one atom each. They return whether the stack holds the operands; if it doesn't, nothing has changed.

template <class Fold>
bool apply_to_one(Tree& tree, i32 op, f64 operand, Fold fold)
{
  if (tree.depth < 1) return false;
  const i32 x = tree.pop();
  if (tree.is_constant(x)) {
    tree.push_folded(fold(tree.value[x]));
  } else {
    tree.make(op, operand);
    tree.add_child(x);
    tree.push_next();
  }
  return true;
}

bool apply_addition(Tree& tree, f64 operand)
{
  if (tree.depth < 2) return false;
  const i32 y = tree.pop(), x = tree.pop();
  if (tree.is_constant(x) && tree.is_constant(y)) {
    tree.push_folded(tree.value[x] + tree.value[y]);
  } else if (tree.is_constant(x, 0.0)) {
    tree.value[tree.nodes] = 0.0;
    tree.pass_on(y, 0);
  } else if (tree.is_constant(y, 0.0)) {
    tree.pass_on(x, 0);
  } else {
    tree.push_pair(add, operand, x, y);
  }
  return true;
}

bool apply_multiplication(Tree& tree, f64 operand)
{
  if (tree.depth < 2) return false;
  const i32 y = tree.pop(), x = tree.pop();
  if (tree.is_constant(x) && tree.is_constant(y)) {
    tree.push_folded(tree.value[x] * tree.value[y]);
  } else if (tree.is_constant(x, 0.0) || tree.is_constant(y, 0.0)) {
    tree.push_folded(0.0);
  } else if (tree.is_constant(y, 1.0)) {
    tree.pass_on(x, 1);
  } else if (tree.is_constant(x, 1.0)) {
    tree.pass_on(y, 1);
  } else {
    tree.push_pair(multiply, operand, x, y);
  }
  return true;
}

// Brings the constants to the front by exchanges from both ends.
void constants_first(const Tree& tree, const Scratch<i32>& entries, i32 n)
{
  for (i32 front = 0, back = n - 1; front < back; ++front, --back) {
    while (front < back && tree.is_constant(entries[front])) ++front;
    while (front < back && !tree.is_constant(entries[back])) --back;
    std::swap(entries[front], entries[back]);
  }
}

// The sum of the n topmost values, n from 2 on, from the top down. Several constants are merged into one.
void add_up_several(Tree& tree, i32 n)
{
  const Scratch<i32> entries(n);
  for (i32 j = 0; j < n; ++j) entries[j] = tree.pop();
  constants_first(tree, entries, n);

  f64 constant = 0.0;
  i32 constants = 0;
  for (; constants < n && tree.is_constant(entries[constants]); ++constants) constant += tree.value[entries[constants]];

  if (constants == n) {
    tree.push_folded(constant);
    return;
  }
  i32 first = 0;
  if (constants > 1) {
    tree.make(push_constant, constant);
    first = constants - 1;
    entries[first] = tree.nodes++;
  }
  tree.make(add_several, n - first);
  for (i32 j = first; j < n; ++j) tree.add_child(entries[j]);
  tree.push_next();
}

// A sum of one is refused, which is intended: a node without children on top of the operand leaves the stack with one
// value too many at the end of the term, unless a later atom uses it up.
bool apply_sum(Tree& tree, f64 operand)
{
  const i32 n = as_integer(operand);
  if (n < 0 || n > tree.depth) return false;
  if (n == 0) {
    tree.push_folded(0.0);
  } else if (n == 1) {
    tree.make(0);
    tree.push_next();
  } else {
    add_up_several(tree, n);
  }
  return true;
}

// Runs one atom. Returns whether it is well-formed.
bool run_atom(Tree& tree, i32 op, f64 operand)
{
  switch (op) {
    case 0:
      return true;
    case push_parameter:
      tree.push_leaf(push_parameter, operand);
      return true;
    case push_constant:
      tree.push_source_constant(operand);
      return true;
    case add:
      return apply_addition(tree, operand);
    case negate:
      return apply_to_one(tree, negate, operand, [](f64 x) { return -x; });
    case multiply:
      return apply_multiplication(tree, operand);
    case invert:
      return apply_to_one(tree, invert, operand, [](f64 x) { return 1.0 / x; });
    case add_several:
      return apply_sum(tree, operand);
    default:
      return false;
  }
}

// The compacted programs of the terms, one behind the other.
struct Program {
  Run<i32> code;
  Run<f64> cconst;
  i32 atoms;

  void append(i32 op, f64 operand)
  {
    code[atoms] = op;
    cconst[atoms] = operand;
    ++atoms;
  }
};

// Moves a constant root into `cof`, and the mark into the program.
void write_constant(f64 constant, Program& program, f64& cof)
{
  cof += constant;
  program.append(moved_to_cof, 0.0);
}

// Writes the tree below the node on the stack, and adds `cof` if it isn't 0. The stack then serves for a walk from the
// root that takes last children first; written backwards, and so is the addition, it is the program.
void write_tree(Tree& tree, Program& program, f64& cof)
{
  const i32 start = program.atoms;
  if (cof < 0.0 || cof > 0.0) {  // a NaN stays
    program.code[program.atoms++] = add;
    program.append(push_constant, cof);
    cof = 0.0;
  }
  while (tree.depth > 0) {
    const i32 node = tree.pop();
    program.append(tree.opcode[node], tree.value[node]);
    for (i32 c = tree.childptr[node]; c < tree.childptr[node + 1]; ++c) tree.push(tree.children[c]);
  }
  for (i32 front = start, back = program.atoms - 1; front < back; ++front, --back) {
    std::swap(program.code[front], program.code[back]);
    std::swap(program.cconst[front], program.cconst[back]);
  }
}

}  // namespace

// Compacts the code of `nterm` terms and writes their programs one behind the other. Linear in the number of atoms.
//
// `target_code` and `xi32` are one array, in which the target and the areas of the tree lie apart. In the lengths of
// the areas m is the number of atoms of the longest term, s the number of atoms 8 in the term that has most of them.
//
// Ill-formed code ends the work: its term and all behind it write nothing to the target and to `fixterm`. Ill-formed
// are unknown opcodes, 7 and 10 among them, an atom without the operands that it pops, a negative count of operands,
// and a term that does not leave exactly one value, like one without atoms.
//
// - nterm (count): the terms
// - code (array; up to its last field): the source's opcodes
// - code_consts (array; up to its last field): the source's operands
// - codepos (position in code; atoms): the opcode of each atom
// - constpos (position in code_consts; atoms): the operand of each atom
// - ptr (array; ptrpos + nterm + 1): where the source's terms begin and end
// - ptrpos (position in ptr; nterm + 1): term i has the atoms ptr[ptrpos + i] .. ptr[ptrpos + i + 1]-1, counted from
//   `codepos` and `constpos`
// - fixterm (array; fixpos + nterm): the coefficients `cof`
// - fixpos (position in fixterm; nterm): `cof` of each term
// - k (cursor): the atoms of the target so far
// - target_code (array; up to its last field): the target's opcodes
// - target_const (array; up to its last field): the target's operands
// - tcodepos (position in target_code; k + atoms + 2 a term): the opcode of each atom
// - tconstpos (position in target_const; k + atoms + 2 a term): the operand of each atom
// - target_ptr (array; tptrpos + nterm + 1): where the target's terms end
// - tptrpos (position in target_ptr; nterm + 1): term i ends at target_ptr[tptrpos + i + 1]; the first slot is the
//   caller's
// - oppos (position in xi32; m + s): the opcodes of nodes, as many as the term has atoms marked as unused beforehand
// - valpos (position in xf64; m + s): the values of nodes
// - childptr (position in xi32; m + s + 1): where the children of each node begin
// - children (position in xi32; m): the children of all nodes
// - stack (position in xi32; m): the nodes of the values that are pushed
// - fail (cursor): below 0, or nothing is done; becomes the number of the last ill-formed atom of a term, or the number
//   of nodes of a term that does not leave one value
// - depth (cursor): the height of the stack at the end of the last term; each term begins at 0
// - nodes (cursor): the nodes made at the end of the last term; each term begins at 0
KERNEL((380), (i32 k, i32 fail, i32 depth, i32 nodes), compact_code, i32 children, i32 childptr, CI32 code, i32 codepos,
       CF64 code_consts, i32 constpos, i32 k, i32 fail, F64 fixterm, i32 fixpos, i32 nterm, CI32 ptr, i32 ptrpos,
       i32 stack, i32 depth, I32 target_code, i32 tcodepos, F64 target_const, i32 tconstpos, I32 target_ptr,
       i32 tptrpos, i32 valpos, i32 oppos, i32 nodes, F64 xf64, I32 xi32)
{
  const Run source{code, codepos};
  const Run operands{code_consts, constpos};
  const Run ends{ptr, ptrpos};
  const Run cof{fixterm, fixpos};
  const Run target_ends{target_ptr, tptrpos};
  Tree tree{.opcode{xi32, oppos},
            .target_opcode{target_code, oppos},
            .value{xf64, valpos},
            .childptr{xi32, childptr},
            .children{xi32, children},
            .stack{xi32, stack},
            .depth = depth,
            .nodes = nodes};
  Program program{{target_code, tcodepos}, {target_const, tconstpos}, k};

  for (i64 i = 0; i < nterm && fail < 0; ++i) {
    const i32 begin = ends[i], end = ends[i + 1];
    tree.clear(end - begin);
    for (i32 a = begin; a < end; ++a) {
      if (!run_atom(tree, source[a], operands[a])) fail = a;
    }
    if (fail < 0 && tree.depth != 1) fail = tree.nodes;
    if (fail >= 0) break;

    const i32 root = tree.stack[0];
    if (tree.is_constant(root))
      write_constant(tree.value[root], program, cof[i]);
    else
      write_tree(tree, program, cof[i]);
    target_ends[i + 1] = program.atoms;
  }
  return {program.atoms, fail, tree.depth, tree.nodes};
}

}  // namespace fragments
