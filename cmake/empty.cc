// Placeholder translation unit for a module that has no sources yet.
