// A plug-in of clang-tidy: the checks walk what this project's sources and headers declare, not
// what the system's headers do, whose findings nobody is shown. They need two thirds of the time.

#include <clang/AST/ASTConsumer.h>
#include <clang/AST/ASTContext.h>
#include <clang/AST/DeclCXX.h>
#include <clang/Basic/SourceManager.h>
#include <clang/Frontend/FrontendPluginRegistry.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

// Whether the declaration is, or holds, that of a class that nothing defines or uses. clang-tidy
// asks of such a one whether it was meant for a class of another namespace, and can tell only if it
// sees all of them.
bool declaresForNothing(const clang::Decl& declaration) {
  if (const auto* record = llvm::dyn_cast<clang::CXXRecordDecl>(&declaration)) {
    return !record->hasDefinition() && !record->isReferenced();
  }
  if (!llvm::isa<clang::NamespaceDecl, clang::LinkageSpecDecl>(declaration)) return false;
  const auto inner = llvm::cast<clang::DeclContext>(declaration).decls();
  return std::any_of(inner.begin(), inner.end(),
                     [](const clang::Decl* each) { return declaresForNothing(*each); });
}

class OwnCode : public clang::ASTConsumer {
 public:
  void HandleTranslationUnit(clang::ASTContext& context) override {
    const clang::SourceManager& sources = context.getSourceManager();
    std::vector<clang::Decl*> own;
    for (clang::Decl* declaration : context.getTranslationUnitDecl()->decls()) {
      const clang::SourceLocation place = sources.getExpansionLoc(declaration->getLocation());
      if (place.isInvalid() || sources.isInSystemHeader(place)) continue;
      if (declaresForNothing(*declaration)) return;
      own.push_back(declaration);
    }
    context.setTraversalScope(own);
  }
};

class OwnCodeOnly : public clang::PluginASTAction {
 public:
  std::unique_ptr<clang::ASTConsumer> CreateASTConsumer(clang::CompilerInstance&,
                                                        llvm::StringRef) override {
    return std::make_unique<OwnCode>();
  }
  bool ParseArgs(const clang::CompilerInstance&, const std::vector<std::string>&) override {
    return true;
  }
  ActionType getActionType() override { return AddBeforeMainAction; }
};

const clang::FrontendPluginRegistry::Add<OwnCodeOnly> kOwnCodeOnly(
    "own-code-only", "leave out the system's headers");

}  // namespace
