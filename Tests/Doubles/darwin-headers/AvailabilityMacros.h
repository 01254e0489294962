// GoogleTest includes it and needs nothing of it.
