// Replaced by this folder's first source.
