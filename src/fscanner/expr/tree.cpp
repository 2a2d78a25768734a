#include "fscanner/expr/tree.h"

#include "fscanner/expr/operators.h"

namespace fscanner {

namespace {

TreeNode* child(std::unique_ptr<TreeNode>& place) {
    if (!place) place = Tree::createTreeNode();
    return place.get();
}

std::wstring operandText(const Token& token) {
    switch (token.getType()) {
        case TOKEN_NUMBER:
            return std::to_wstring(token.getNumericValue());
        case TOKEN_STRING:
            return L'"' + std::wstring(token.text()) + L'"';
        case TOKEN_FIELD:
            return L'[' + std::wstring(token.text()) + L']';
        case TOKEN_VARIABLE:
            return std::wstring(token.text());
        default:
            return L"_";
    }
}

std::wstring operatorText(const Token& token) {
    if (token.getType() == TOKEN_COMMAND) return std::wstring(token.text());
    const auto op = operatorOf(token);
    return op ? spelling(*op) : L"?";
}

/// Whether the node's right child is a placeholder.
bool hasOneOperand(const TreeNode& node) {
    if (node.data.getType() == TOKEN_COMMAND) {
        return Tree::isLeaf(node.right.get()) && node.right->data.getType() == TOKEN_END;
    }
    const auto op = operatorOf(node.data);
    return op && isUnary(*op);
}

/// Writes a node or, for null, a closing parenthesis. Puts what is to be written next on the stack.
class TreeDump {
public:
    std::wstring run(const TreeNode* root) {
        if (root) pending_.push_back(root);
        while (!pending_.empty()) {
            const TreeNode* node = pending_.back();
            pending_.pop_back();
            write(node);
        }
        return std::move(out_);
    }

private:
    void write(const TreeNode* node) {
        if (!node) {
            out_ += L')';
            return;
        }
        if (!out_.empty()) out_ += L' ';
        if (Tree::isLeaf(node)) {
            out_ += operandText(node->data);
            return;
        }
        out_ += L'(' + operatorText(node->data);
        pending_.push_back(nullptr);
        if (node->right && !hasOneOperand(*node)) pending_.push_back(node->right.get());
        if (node->left) pending_.push_back(node->left.get());
    }

    std::vector<const TreeNode*> pending_;
    std::wstring out_;
};

}  // namespace

Tree& Tree::operator=(Tree&& other) noexcept {
    if (this != &other) free(std::exchange(root_, std::move(other.root_)));
    return *this;
}

Tree::~Tree() {
    free(std::move(root_));
}

std::unique_ptr<TreeNode> Tree::createTreeNode() {
    return std::make_unique<TreeNode>();
}

void Tree::setRoot() {
    child(root_);
}

bool Tree::setData(TreeNode* node, const Token& token) {
    if (node) node->data = token;
    return node != nullptr;
}

TreeNode* Tree::setLeftTreeNode(TreeNode* node) {
    return node ? child(node->left) : nullptr;
}

TreeNode* Tree::setLeftTreeNode(TreeNode* node, const Token& token) {
    TreeNode* left = setLeftTreeNode(node);
    setData(left, token);
    return left;
}

TreeNode* Tree::setRightTreeNode(TreeNode* node) {
    return node ? child(node->right) : nullptr;
}

TreeNode* Tree::setRightTreeNode(TreeNode* node, const Token& token) {
    TreeNode* right = setRightTreeNode(node);
    setData(right, token);
    return right;
}

bool Tree::merge(Tree* other) {
    if (!other) return false;
    if (!root_ && !other->root_) return true;
    auto root = createTreeNode();
    root->left = std::move(root_);
    root->right = std::move(other->root_);
    root_ = std::move(root);
    return true;
}

/// Rotates the left child up until there is none, and drops the root then:
///
///         n               l
///        / \             / \        every node moves to the right spine once,
///       l   c   ==>     a   n       so the whole takes linear time
///      / \                 / \        .
///     a   b               b   c
void Tree::free(std::unique_ptr<TreeNode> node) noexcept {
    while (node) {
        if (!node->left) {
            node = std::move(node->right);
            continue;
        }
        std::unique_ptr<TreeNode> up = std::move(node->left);
        node->left = std::move(up->right);
        up->right = std::move(node);
        node = std::move(up);
    }
}

bool Tree::preVisit(const TreeNode* node) {
    std::vector<const TreeNode*> pending{node};
    while (!pending.empty()) {
        node = pending.back();
        pending.pop_back();
        if (!node) return false;
        if (isLeaf(node)) continue;
        pending.push_back(node->right.get());
        pending.push_back(node->left.get());
    }
    return true;
}

namespace {

/// The operands of a chain of "&&" or "||" from this node down.
std::vector<const TreeNode*> chained(const TreeNode* root, long long booleanOperator) {
    std::vector<const TreeNode*> found, pending{root};
    while (!pending.empty()) {
        const TreeNode* node = pending.back();
        pending.pop_back();
        if (!node) continue;
        if (node->data.is(TOKEN_OPBOOL, booleanOperator)) {
            pending.push_back(node->right.get());
            pending.push_back(node->left.get());
        } else {
            found.push_back(node);
        }
    }
    return found;
}

}  // namespace

std::vector<const TreeNode*> conjuncts(const Tree& tree) {
    return chained(tree.getRoot(), BOOL_AND);
}

std::vector<const TreeNode*> disjuncts(const TreeNode& node) {
    return chained(&node, BOOL_OR);
}

std::wstring dumpTree(const Tree& tree) {
    return TreeDump().run(tree.getRoot());
}

}  // namespace fscanner
