#pragma once

#include <memory>
#include <string>
#include <vector>

#include "fscanner/expr/lexer.h"

namespace fscanner {

/// A leaf holds an operand, an inner node an operator or a command. An operator or command with
/// one operand has it on the left, and an empty node (`TOKEN_END`) on the right.
struct TreeNode {
    std::unique_ptr<TreeNode> left;
    std::unique_ptr<TreeNode> right;
    Token data;
};

/// A criteria as it was read. It grows at its root: each step puts the old tree to the left of a
/// new root. So a chain of operators can be hundreds of thousands of nodes deep on the left.
/// No function here recurses along it.
class Tree {
public:
    Tree() = default;
    Tree(Tree&& other) noexcept = default;
    Tree& operator=(Tree&& other) noexcept;
    ~Tree();

    /// A node without children and with an empty token.
    static std::unique_ptr<TreeNode> createTreeNode();
    /// Makes an empty root unless there is one.
    void setRoot();
    TreeNode* getRoot() const { return root_.get(); }
    static TreeNode* getLeft(const TreeNode* node) { return node ? node->left.get() : nullptr; }
    static TreeNode* getRight(const TreeNode* node) { return node ? node->right.get() : nullptr; }
    static bool isLeaf(const TreeNode* node) { return node && !node->left && !node->right; }
    /// False for a null node.
    static bool setData(TreeNode* node, const Token& token);
    /// The child, made if it is not there; null for a null node.
    static TreeNode* setLeftTreeNode(TreeNode* node);
    static TreeNode* setLeftTreeNode(TreeNode* node, const Token& token);
    static TreeNode* setRightTreeNode(TreeNode* node);
    static TreeNode* setRightTreeNode(TreeNode* node, const Token& token);
    /// Puts both trees below a new root, this one to the left, and empties the
    /// other. Without a tree here the new root has no left child; with none at
    /// all nothing happens.
    bool merge(Tree* other);
    /// Releases a node and all below it, without recursion and without allocation.
    static void free(std::unique_ptr<TreeNode> node) noexcept;
    /// Whether every inner node below has both children, and every leaf is thus reached.
    static bool preVisit(const TreeNode* node);

private:
    std::unique_ptr<TreeNode> root_;
};

/// The operands of the "&&" chain at the top, in order of appearance: a criteria holds
/// where each of them does. The whole where it is no "&&"; none of an empty tree.
std::vector<const TreeNode*> conjuncts(const Tree& tree);
/// The operands of the "||" chain at a node, in order of appearance. The node where it is no "||".
std::vector<const TreeNode*> disjuncts(const TreeNode& node);

/// One line: (&& (== [FILENAME] "*.h") (> [SIZE] 1000)). An operand that the
/// text left out ("1 + )") is "_".
std::wstring dumpTree(const Tree& tree);

}  // namespace fscanner
