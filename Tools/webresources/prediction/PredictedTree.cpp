#include "PredictedTree.h"

#include <algorithm>

#include "Names.h"

using Failure = PredictedTree::Failure;

namespace {

/// Moves `*node` to what `component` means in that directory.
Failure Step(const std::string& component, PredictedTree::Node** node) {
  if (!(*node)->isDirectory) {
    return Failure::NotADirectory;
  }
  if (component.empty() || component == ".") {
    return Failure::None;
  }
  if (component == "..") {
    *node = (*node)->parent;
    return Failure::None;
  }
  if (component.length() > names::kComponentLimit) {
    return Failure::ComponentTooLong;
  }
  const auto child = (*node)->children.find(component);
  if (child == (*node)->children.end()) {
    return Failure::Missing;
  }
  *node = child->second.get();
  return Failure::None;
}

}  // namespace

bool PredictedTree::Exists(const std::string& path) const {
  Node* found = nullptr;
  return Find(path, &found) == Failure::None;
}

Failure PredictedTree::Find(const std::string& path, Node** found) const {
  *found = root_.get();
  for (std::size_t start = 0; start <= path.length();) {
    const std::size_t end = std::min(path.find('/', start), path.length());
    const Failure failure = Step(path.substr(start, end - start), found);
    if (failure != Failure::None) {
      return failure;
    }
    start = end + 1;
  }
  return Failure::None;
}

Failure PredictedTree::MakeDirectory(const std::string& path) {
  if (Exists(path)) {
    return Failure::Exists;
  }
  // mkdir() accepts a name that ends in "/".
  Node* added = nullptr;
  return Add(path.substr(0, path.find_last_not_of('/') + 1), true, &added);
}

Failure PredictedTree::OpenFile(const std::string& path, Node** file) {
  if (Find(path, file) == Failure::None) {
    return (*file)->isDirectory ? Failure::IsADirectory : Failure::None;
  }
  return Add(path, false, file);
}

Failure PredictedTree::Add(const std::string& path, bool isDirectory, Node** added) {
  Node* directory = nullptr;
  const Failure failure = Find(names::Parent(path), &directory);
  if (failure != Failure::None) {
    return failure;
  }
  const std::string name = names::Last(path);
  *added = directory;
  const Failure step = Step(name, added);
  if (step == Failure::None) {
    return Failure::Exists;  // "." and "..", and a file where "name/" asks for a directory
  }
  if (step != Failure::Missing) {
    return step;
  }
  auto node = std::make_unique<Node>();
  node->isDirectory = isDirectory;
  node->parent = directory;
  *added = node.get();
  directory->children.emplace(name, std::move(node));
  return Failure::None;
}
