"""How the pictures of `sylvora.plot` are drawn."""
